#include "engine/Renderer.h"

#include <algorithm>
#include <utility>

#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Target.h"
#include "engine/Texture.h"

namespace Brume {

void Renderer::setTarget(std::shared_ptr<Target> target) {
    this->target = std::move(target);
}

void Renderer::clear() {
    glBindFramebuffer(GL_FRAMEBUFFER, target ? target->getFramebuffer() : 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

void Renderer::draw(std::shared_ptr<Material> material, std::shared_ptr<Geometry> geometry,
                    std::int64_t first, std::int64_t count) const {
    const GLuint program = material->getProgram();
    glUseProgram(program);

    // Binding i of the material was told to sample unit i when it was set.
    const std::vector<Material::TextureBinding>& textures = material->getTextures();
    for (std::size_t unit = 0; unit < textures.size(); ++unit) {
        glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
        glBindTexture(GL_TEXTURE_2D, textures[unit].texture->getId());
    }

    glBindVertexArray(geometry->getVertexArray());

    // Attributes are matched to the program by name on every draw: one geometry may be drawn with several
    // materials whose inputs sit at different locations. A name the program does not use gives -1; the
    // GL error that follows is harmless and deliberately not checked.
    std::uint32_t vertexCount = 0;
    for (const std::shared_ptr<Buffer>& buffer : geometry->getBuffers()) {
        vertexCount = std::max(vertexCount, buffer->getVertexCount());
        glBindBuffer(GL_ARRAY_BUFFER, buffer->getId());
        for (const Buffer::Attribute& attribute : buffer->getAttributes()) {
            const GLuint location = static_cast<GLuint>(glGetAttribLocation(program, attribute.name.c_str()));
            glEnableVertexAttribArray(location);
            glVertexAttribPointer(location, static_cast<GLint>(attribute.components), attribute.type,
                                  attribute.type != GL_FLOAT ? GL_TRUE : GL_FALSE, buffer->getStride(),
                                  reinterpret_cast<const void*>(attribute.offset));
        }
    }

    // Point shaders write gl_PointSize; the switch stays on for every later draw.
    if (geometry->getMode() == GL_POINTS) {
        glEnable(GL_PROGRAM_POINT_SIZE);
    }

    // Without a target the draw goes to whatever frame buffer is bound, so a caller can draw into one it
    // bound itself.
    if (target) {
        glBindFramebuffer(GL_FRAMEBUFFER, target->getFramebuffer());
    }

    if (const Geometry::Indices* indices = geometry->getIndices()) {
        const std::uint64_t n = count != 0 ? static_cast<std::uint64_t>(count) : indices->count;
        const std::uintptr_t byteOffset = static_cast<std::uintptr_t>(first) * indices->elementSize;
        glDrawElements(geometry->getMode(), static_cast<GLsizei>(n), indices->type,
                       reinterpret_cast<const void*>(byteOffset));
    } else {
        const std::int64_t n = count != 0 ? count : static_cast<std::int64_t>(vertexCount);
        glDrawArrays(geometry->getMode(), static_cast<GLint>(first), static_cast<GLsizei>(n));
    }
}

} // namespace Brume
