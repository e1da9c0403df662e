#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "platform/Export.h"

namespace Brume {

// The buffers one draw reads, the primitive type and at most one index buffer; owns one vertex array.
// Held through std::shared_ptr; render thread only.
class ORVEL_VR_EXPORT Geometry {
public:
    struct Indices {
        GLuint id;
        std::uint64_t count;
        GLenum type;
        std::uint64_t elementSize;
    };

    explicit Geometry(GLenum mode);
    ~Geometry();
    Geometry(const Geometry&) = delete;
    Geometry& operator=(const Geometry&) = delete;

    // Throws "Attribute is already in use." when an attribute name is taken by an earlier buffer.
    void addBuffer(std::shared_ptr<Buffer> buffer);

    // Uploads four bytes per index whatever elementSize says: 32-bit indices are the only format drawn
    // from index buffers built this way.
    void setIndices(const void* data, std::size_t count, GLenum type, std::size_t elementSize);

    const std::vector<std::shared_ptr<Buffer>>& getBuffers() const { return buffers; }
    GLuint getVertexArray() const { return vertexArray; }
    GLenum getMode() const { return mode; }
    const Indices* getIndices() const { return indices.get(); }

private:
    std::vector<std::shared_ptr<Buffer>> buffers;
    GLuint vertexArray = 0;
    GLenum mode;
    std::unique_ptr<Indices> indices;
};

} // namespace Brume
