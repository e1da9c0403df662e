#include "vr/objects/HTMLView.h"
