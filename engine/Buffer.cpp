#include "engine/Buffer.h"

#include <cstdint>
#include <utility>

#include "engine/GLFunctions.h"

namespace Brume {

namespace {

std::size_t componentSize(GLenum type) {
    return type == GL_UNSIGNED_BYTE ? 1 : 4;
}

} // namespace

Buffer::Attribute::Attribute(std::string name, GLenum type, unsigned components, std::size_t offset)
    : name(std::move(name)), type(type), components(components), offset(offset) {
    // Zero components slip through on purpose: layouts declared with 0 have always been accepted.
    if (components > 4) {
        throw Exception("Number of components must be 1, 2, 3 or 4.");
    }
}

Buffer::Buffer(GLenum usage, std::size_t stride, std::vector<Attribute> attributes)
    : attributes(std::move(attributes)), usage(usage), stride(static_cast<std::int32_t>(stride)) {
    // A stride of 0 means "tightly packed, decided later", so the layout cannot be measured against it.
    if (stride != 0 && !this->attributes.empty()) {
        std::size_t end = 0;
        for (const Attribute& attribute : this->attributes) {
            if (attribute.type != GL_UNSIGNED_BYTE && attribute.type != GL_FLOAT) {
                throw Exception("Unknown attribute type encountered");
            }
            const std::size_t attributeEnd =
                attribute.offset + attribute.components * componentSize(attribute.type);
            if (attributeEnd > end) {
                end = attributeEnd;
            }
        }
        if (stride < end) {
            throw Exception("Attributes require bigger stride than specified");
        }
    }
    for (std::size_t i = 0; i < this->attributes.size(); ++i) {
        for (std::size_t j = i + 1; j < this->attributes.size(); ++j) {
            if (this->attributes[i].name == this->attributes[j].name) {
                throw Exception("Attributes with duplicate names encountered");
            }
        }
    }
    glGenBuffers(1, &id);
    countGLObjects(1);
}

Buffer::~Buffer() {
    glDeleteBuffers(1, &id);
    countGLObjects(-1);
}

void Buffer::upload(const void* data, std::int32_t bytes) {
    byteSize = bytes;
    // Callers never fill a buffer declared with stride 0; guard the division all the same.
    vertexCount = stride > 0 ? static_cast<std::uint32_t>(byteSize / stride) : 0;
    glBindBuffer(GL_ARRAY_BUFFER, id);
    glBufferData(GL_ARRAY_BUFFER, byteSize, data, usage);
}

void Buffer::allocate(std::size_t count) {
    const std::uint64_t bytes = static_cast<std::uint64_t>(count) * static_cast<std::uint64_t>(stride);
    if (bytes > static_cast<std::uint64_t>(INT32_MAX)) {
        throw Exception("Buffer::allocate out of range");
    }
    upload(nullptr, static_cast<std::int32_t>(bytes));
}

void Buffer::update(const void* data, std::int32_t length, std::size_t byteOffset) {
    const std::uint64_t capacity = byteSize > 0 ? static_cast<std::uint64_t>(byteSize) : 0;
    const std::uint64_t needed = static_cast<std::uint64_t>(length);
    if (byteOffset > capacity || needed > capacity - byteOffset) {
        throw Exception("Buffer::subData out of bounds");
    }
    glBindBuffer(GL_ARRAY_BUFFER, id);
    glBufferSubData(GL_ARRAY_BUFFER, static_cast<GLintptr>(byteOffset), length, data);
}

} // namespace Brume
