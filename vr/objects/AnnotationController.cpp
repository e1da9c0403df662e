#include "vr/objects/AnnotationController.h"
