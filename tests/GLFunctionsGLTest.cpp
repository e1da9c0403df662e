#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "engine/GLFunctions.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"

using OrvelTest::GLCallRecorder;
using OrvelTest::GLTest;

class GLFunctionsGLTest : public GLTest {};

TEST_F(GLFunctionsGLTest, LoaderResolvesCoreAndReportsVersion) {
    const int result = Brume::initGLFunctions();
    EXPECT_GE(result, 1);
    EXPECT_TRUE(Brume::isGLVersionAtLeast(4, 1));
    EXPECT_TRUE(Brume::isGLVersionAtLeast(3, 3));
    EXPECT_FALSE(Brume::isGLVersionAtLeast(9, 0));
    // Mesa offers KHR_debug; its entry points all resolve, so the flag is exactly 1.
    EXPECT_EQ(Brume::hasKHRDebug(), 1);
}

TEST_F(GLFunctionsGLTest, MaxTextureSizeIsCachedPerThread) {
    GLCallRecorder recorder;
    const int size = Brume::maxTextureSize();
    EXPECT_GT(size, 0);
    EXPECT_EQ(Brume::maxTextureSize(), size);
    EXPECT_EQ(recorder.count("glGetIntegerv"), 1);

    // Another thread has no context current: the query must not be answered from this thread's cache.
    std::string message;
    std::thread([&] { message = OrvelTest::thrownMessage(Brume::maxTextureSize); }).join();
    EXPECT_EQ(message, "No OpenGL rendering context found.");
}
