#pragma once

// The one place the engine takes its OpenGL declarations from: the loader generated into the build tree.
#include <glad/gl.h>
