#include "vr/objects/MeshRenderer.h"
