#pragma once

#include <vector>

#include "common/AnnotationData.h"
#include "common/MeshData.h"

namespace Demo {

// The host objects that belong to the generated sample room (SceneGenerator): a few annotations on its
// walls and furniture, and the meshes a modelling tool would have made of it. The meshes come as the
// viewer takes them: all furniture merged into one lit, untextured triangle record, a framed picture on
// the south wall as a textured record, and a floor grid as the one line record.
//
// Stateless; any thread.
class SampleObjects {
public:
    static std::vector<VR::AnnotationData> roomAnnotations();
    static std::vector<VR::MeshData> roomMeshes();
};

} // namespace Demo
