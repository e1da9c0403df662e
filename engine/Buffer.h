#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/Exception.h"
#include "engine/GL.h"
#include "platform/Export.h"

namespace Brume {

// One GL array buffer with a declared interleaved layout of named vertex attributes. Held through
// std::shared_ptr; render thread only.
class ORVEL_VR_EXPORT Buffer {
public:
    struct ORVEL_VR_EXPORT Attribute {
        std::string name;
        GLenum type;
        unsigned components;
        std::size_t offset;

        // Throws "Number of components must be 1, 2, 3 or 4." for more than four components.
        Attribute(std::string name, GLenum type, unsigned components, std::size_t offset);
    };

    Buffer(GLenum usage, std::size_t stride, std::vector<Attribute> attributes);
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    // Reallocates the storage with the whole vector.
    template <typename T> void setData(const std::vector<T>& data) {
        upload(data.data(), static_cast<std::int32_t>(data.size() * sizeof(T)));
    }

    // Reallocates the storage for `count` vertices of the stride without filling it: the contents are
    // undefined until written. Throws "Buffer::allocate out of range" past 2 GiB.
    void allocate(std::size_t count);

    // Overwrites part of the storage; throws "Buffer::subData out of bounds" past byteSize.
    template <typename T> void subData(const T* data, std::size_t count, std::size_t byteOffset) {
        if (count == 0) {
            return;
        }
        update(data, static_cast<std::int32_t>(count * sizeof(T)), byteOffset);
    }

    const std::vector<Attribute>& getAttributes() const { return attributes; }
    GLuint getId() const { return id; }
    GLenum getUsage() const { return usage; }
    std::uint32_t getVertexCount() const { return vertexCount; }
    std::int32_t getStride() const { return stride; }
    std::int32_t getByteSize() const { return byteSize; }

private:
    void upload(const void* data, std::int32_t bytes);
    void update(const void* data, std::int32_t length, std::size_t byteOffset);

    std::vector<Attribute> attributes;
    GLuint id = 0;
    GLenum usage;
    std::uint32_t vertexCount = 0;
    std::int32_t stride;
    std::int32_t byteSize = 0;
};

} // namespace Brume
