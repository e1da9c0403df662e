#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Buffer.h"
#include "engine/Geometry.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"

using Brume::Buffer;
using OrvelTest::thrownMessage;

namespace {

class BufferGLTest : public OrvelTest::GLTest {};

using Layout = std::vector<Buffer::Attribute>;

} // namespace

TEST_F(BufferGLTest, RejectsInvalidLayouts) {
    EXPECT_EQ(thrownMessage([] { Buffer::Attribute("Position", GL_FLOAT, 5, 0); }),
              "Number of components must be 1, 2, 3 or 4.");
    const struct {
        int stride;
        Layout layout;
        const char* message;
    } cases[] = {
        // The largest end counts, not the last attribute's.
        {15,
         {{"Color", GL_UNSIGNED_BYTE, 4, 12}, {"Position", GL_FLOAT, 3, 0}},
         "Attributes require bigger stride than specified"},
        {12, {{"Index", GL_INT, 1, 0}}, "Unknown attribute type encountered"},
        // Stride 0 skips the size checks but not the name check.
        {0, {{"uv", GL_INT, 3, 0}, {"uv", GL_FLOAT, 3, 0}}, "Attributes with duplicate names encountered"},
        // Accepted: an exact fit, names differing in case, zero components, an unchecked stride-0 layout.
        {16,
         {{"Position", GL_FLOAT, 3, 0}, {"position", GL_FLOAT, 0, 0}, {"Color", GL_UNSIGNED_BYTE, 4, 12}},
         "<no exception>"},
        {0, {{"Index", GL_INT, 1, 0}}, "<no exception>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        EXPECT_EQ(thrownMessage([&] { Buffer(GL_STATIC_DRAW, c.stride, c.layout); }), c.message);
    }
}

TEST_F(BufferGLTest, SubDataIsBoundedByTheLastUpload) {
    Buffer buffer(GL_DYNAMIC_DRAW, 8, {{"Value", GL_FLOAT, 2, 0}});
    buffer.setData(std::vector<float>{1, 2, 3, 4});
    EXPECT_EQ(buffer.getByteSize(), 16);
    EXPECT_EQ(buffer.getVertexCount(), 2u);

    const float two[2] = {7, 8};
    buffer.subData(two, 2, 8); // ends exactly at byteSize
    EXPECT_EQ(thrownMessage([&] { buffer.subData(two, 2, 9); }), "Buffer::subData out of bounds");
    buffer.subData(two, 0, 1000); // nothing to write, nothing checked
    std::array<float, 4> stored{};
    glBindBuffer(GL_ARRAY_BUFFER, buffer.getId());
    glGetBufferSubData(GL_ARRAY_BUFFER, 0, 16, stored.data());
    EXPECT_EQ(stored, (std::array<float, 4>{1, 2, 7, 8}));

    buffer.setData(std::vector<float>{});
    EXPECT_EQ(buffer.getVertexCount(), 0u);
    EXPECT_EQ(thrownMessage([&] { buffer.subData(two, 1, 0); }), "Buffer::subData out of bounds");
}

TEST_F(BufferGLTest, GeometryKeepsAttributeNamesUniqueAndUploadsFourBytesPerIndex) {
    Brume::Geometry geometry(GL_TRIANGLES);
    auto first = std::make_shared<Buffer>(GL_STATIC_DRAW, 12, Layout{{"Position", GL_FLOAT, 3, 0}});
    geometry.addBuffer(first);
    // Only the name matters: another type and offset still collide, and the geometry is left as it was.
    auto clash = std::make_shared<Buffer>(GL_STATIC_DRAW, 8,
                                          Layout{{"uv", GL_FLOAT, 1, 0}, {"Position", GL_FLOAT, 1, 4}});
    EXPECT_EQ(thrownMessage([&] { geometry.addBuffer(clash); }), "Attribute is already in use.");
    ASSERT_EQ(geometry.getBuffers().size(), 1u);
    EXPECT_EQ(geometry.getBuffers()[0], first);

    const std::uint32_t indices[6] = {0, 1, 2, 2, 1, 3};
    geometry.setIndices(indices, 6, GL_UNSIGNED_SHORT, 2); // a declared size of 2 still uploads 4 per index
    const GLuint indexBuffer = geometry.getIndices()->id;
    geometry.setIndices(indices, 5, GL_UNSIGNED_INT, 4); // reuses the record and its buffer
    EXPECT_EQ(geometry.getIndices()->id, indexBuffer);
    EXPECT_EQ(geometry.getIndices()->count, 5u);

    glBindVertexArray(geometry.getVertexArray());
    GLint bound = 0;
    GLint size = 0;
    glGetIntegerv(GL_ELEMENT_ARRAY_BUFFER_BINDING, &bound);
    glGetBufferParameteriv(GL_ELEMENT_ARRAY_BUFFER, GL_BUFFER_SIZE, &size);
    EXPECT_EQ(static_cast<GLuint>(bound), indexBuffer);
    EXPECT_EQ(size, 20);
    glBindVertexArray(0);
}
