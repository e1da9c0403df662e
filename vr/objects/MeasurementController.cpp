#include "vr/objects/MeasurementController.h"
