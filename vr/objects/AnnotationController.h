#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/AnnotationData.h"
#include "common/Mat4d.h"
#include "platform/Export.h"

namespace Brume {
class Renderer;
}
class AnnotationRenderer;

// Shows the host's annotations, one AnnotationRenderer per annotation keyed by the host's uuid, and maps
// the stencil values they write back to those uuids for picking: entry i writes STENCIL_START_INDEX + i.
// Owned by the VR renderer; render thread only, with the run's GL context current.
class ORVEL_VR_EXPORT AnnotationController {
public:
    static constexpr unsigned STENCIL_START_INDEX = 128;
    // Annotations that get a stencil value of their own; the rest are not pickable.
    static constexpr unsigned STENCIL_COUNT = 64;

    struct Entry {
        std::string uuid;
        std::shared_ptr<AnnotationRenderer> renderer;
    };

    explicit AnnotationController(float lineWidth);
    ~AnnotationController();
    // Copies share the renderers.
    AnnotationController(const AnnotationController&);
    AnnotationController(AnnotationController&&) noexcept;
    AnnotationController& operator=(const AnnotationController&);
    AnnotationController& operator=(AnnotationController&&) noexcept;

    void addAnnotation(const VR::AnnotationData& annotation);
    // Keeps the renderers of uuids still in the list (taking over a changed text or position), drops the
    // others and adds the new ones behind them; the survivors' stencil values may therefore change.
    void updateAnnotations(const std::vector<VR::AnnotationData>& annotations);

    // modelViewProjection is the whole world-to-clip matrix of the pass. With stencilPass each entry sets the
    // stencil function to write its own value (the caller enables the test and chooses the operation);
    // the function and write mask are left as the last entry set them.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
              const Ko_1_1::Mat4d<float>& worldToHead, const Ko_1_1::Mat4d<float>& headToEye,
              const Ko_1_1::Mat4d<float>& projection, bool stencilPass);
    // For passes that are not the head's (picking from the controller): the plates keep facing the head as
    // the last draw placed them.
    void drawCached(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
                    const Ko_1_1::Mat4d<float>& worldToHead, const Ko_1_1::Mat4d<float>& projection,
                    bool stencilPass);

    // Values outside this controller's range are ignored or answer an empty uuid.
    void highlight(unsigned stencilValue);
    void resetHighlight();
    std::string getUuidAtStencilIndex(unsigned stencilValue) const;

    const std::vector<Entry>& getEntries() const { return entries; }

private:
    void drawEntries(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
                     const Ko_1_1::Mat4d<float>& worldToHead, const Ko_1_1::Mat4d<float>& headToEye,
                     const Ko_1_1::Mat4d<float>& projection, bool stencilPass, bool place);

    std::vector<Entry> entries;
    float lineWidth;
};
