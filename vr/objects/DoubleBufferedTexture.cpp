#include "vr/objects/DoubleBufferedTexture.h"
