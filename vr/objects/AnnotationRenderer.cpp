#include "vr/objects/AnnotationRenderer.h"
