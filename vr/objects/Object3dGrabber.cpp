#include "vr/objects/Object3dGrabber.h"
