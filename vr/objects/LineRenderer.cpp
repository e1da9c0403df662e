#include "vr/objects/LineRenderer.h"
