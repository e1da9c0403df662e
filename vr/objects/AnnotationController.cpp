#include "vr/objects/AnnotationController.h"

#include <utility>

#include "engine/GL.h"
#include "vr/objects/AnnotationRenderer.h"

namespace {

constexpr float NORMAL_OPACITY = 0.3f;
constexpr float HIGHLIGHT_OPACITY = 1.0f;

Ko_1_1::Vec3d<float> narrow(const Ko_1_1::Vec3d<double>& p) {
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

} // namespace

AnnotationController::AnnotationController(float lineWidth) : lineWidth(lineWidth) {}

AnnotationController::~AnnotationController() = default;
AnnotationController::AnnotationController(const AnnotationController&) = default;
AnnotationController::AnnotationController(AnnotationController&&) noexcept = default;
AnnotationController& AnnotationController::operator=(const AnnotationController&) = default;
AnnotationController& AnnotationController::operator=(AnnotationController&&) noexcept = default;

void AnnotationController::addAnnotation(const VR::AnnotationData& annotation) {
    auto renderer = std::make_shared<AnnotationRenderer>(lineWidth);
    renderer->setAnnotation(narrow(annotation.position), annotation.text);
    entries.push_back({annotation.uuid, std::move(renderer)});
}

void AnnotationController::updateAnnotations(const std::vector<VR::AnnotationData>& annotations) {
    std::vector<std::pair<std::size_t, std::string>> pending;
    pending.reserve(annotations.size());
    for (std::size_t i = 0; i < annotations.size(); ++i) {
        pending.emplace_back(i, annotations[i].uuid);
    }

    std::vector<Entry> kept;
    kept.reserve(entries.size());
    for (Entry& entry : entries) {
        auto match = pending.begin();
        while (match != pending.end() && match->second != entry.uuid) {
            ++match;
        }
        if (match == pending.end()) {
            continue;
        }
        const VR::AnnotationData& annotation = annotations[match->first];
        entry.renderer->setAnnotation(narrow(annotation.position), annotation.text);
        pending.erase(match);
        kept.push_back(std::move(entry));
    }
    entries = std::move(kept);

    for (const auto& added : pending) {
        addAnnotation(annotations[added.first]);
    }
}

void AnnotationController::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
                                const Ko_1_1::Mat4d<float>& worldToHead,
                                const Ko_1_1::Mat4d<float>& headToEye, const Ko_1_1::Mat4d<float>& projection,
                                bool stencilPass) {
    drawEntries(renderer, modelViewProjection, worldToHead, headToEye, projection, stencilPass, true);
}

void AnnotationController::drawCached(Brume::Renderer& renderer,
                                      const Ko_1_1::Mat4d<float>& modelViewProjection,
                                      const Ko_1_1::Mat4d<float>& worldToHead,
                                      const Ko_1_1::Mat4d<float>& projection, bool stencilPass) {
    drawEntries(renderer, modelViewProjection, worldToHead, Ko_1_1::Mat4d<float>::identity(), projection,
                stencilPass, false);
}

void AnnotationController::drawEntries(Brume::Renderer& renderer,
                                       const Ko_1_1::Mat4d<float>& modelViewProjection,
                                       const Ko_1_1::Mat4d<float>& worldToHead,
                                       const Ko_1_1::Mat4d<float>& headToEye,
                                       const Ko_1_1::Mat4d<float>& projection, bool stencilPass, bool place) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (stencilPass) {
            // Values from 192 on name the tablet: annotations beyond the range are drawn but not pickable.
            const GLint value = i < STENCIL_COUNT ? static_cast<GLint>(STENCIL_START_INDEX + i) : 0;
            glStencilFunc(GL_ALWAYS, value, 0xFFFFFFFF);
            glStencilMask(0xFF);
        }
        AnnotationRenderer& annotation = *entries[i].renderer;
        if (place) {
            annotation.updatePlacement(worldToHead);
        }
        annotation.draw(renderer, modelViewProjection, worldToHead, headToEye, projection);
    }
}

void AnnotationController::highlight(unsigned stencilValue) {
    const unsigned index = stencilValue - STENCIL_START_INDEX;
    if (index < entries.size()) {
        entries[index].renderer->setOpacity(HIGHLIGHT_OPACITY);
    }
}

void AnnotationController::resetHighlight() {
    for (Entry& entry : entries) {
        entry.renderer->setOpacity(NORMAL_OPACITY);
    }
}

std::string AnnotationController::getUuidAtStencilIndex(unsigned stencilValue) const {
    const unsigned index = stencilValue - STENCIL_START_INDEX;
    return index < entries.size() ? entries[index].uuid : std::string();
}
