#pragma once

// The fixture moved to tests/support; this path stays until every test includes it from there.
#include "tests/support/SimVRFixture.h"
