#include "vr/objects/LabelRenderer.h"
