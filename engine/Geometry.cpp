#include "engine/Geometry.h"

#include <utility>

#include "engine/Exception.h"
#include "engine/GLFunctions.h"

namespace Brume {

Geometry::Geometry(GLenum mode) : mode(mode) {
    glGenVertexArrays(1, &vertexArray);
    countGLObjects(1);
}

Geometry::~Geometry() {
    if (indices) {
        glDeleteBuffers(1, &indices->id);
        indices.reset();
        countGLObjects(-1);
    }
    glDeleteVertexArrays(1, &vertexArray);
    countGLObjects(-1);
}

void Geometry::addBuffer(std::shared_ptr<Buffer> buffer) {
    // The draw finds attributes by name alone, so two buffers feeding one name would be ambiguous.
    for (const std::shared_ptr<Buffer>& existing : buffers) {
        for (const Buffer::Attribute& used : existing->getAttributes()) {
            for (const Buffer::Attribute& added : buffer->getAttributes()) {
                if (used.name == added.name) {
                    throw Exception("Attribute is already in use.");
                }
            }
        }
    }
    buffers.push_back(std::move(buffer));
}

void Geometry::setIndices(const void* data, std::size_t count, GLenum type, std::size_t elementSize) {
    if (!indices) {
        indices = std::make_unique<Indices>();
        glGenBuffers(1, &indices->id);
        countGLObjects(1);
    }
    indices->count = count;
    indices->type = type;
    indices->elementSize = elementSize;
    // The element buffer binding is vertex array state; the vertex array stays bound afterwards and the
    // draw binds it again anyway.
    glBindVertexArray(vertexArray);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indices->id);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(count * 4), data, GL_STATIC_DRAW);
}

} // namespace Brume
