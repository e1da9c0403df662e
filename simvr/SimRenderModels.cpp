#include "simvr/SimRenderModels.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "simvr/SimRuntime.h"

namespace SimVR {

struct SimRenderModels::ModelRecord {
    vr::RenderModel_t model = {};
    std::vector<vr::RenderModel_Vertex_t> vertices;
    std::vector<uint16_t> indices;
};

struct SimRenderModels::TextureRecord {
    vr::RenderModel_TextureMap_t map = {};
    std::vector<uint8_t> rgba;
};

namespace {

enum class Shape { Handle, Box };

struct KnownModel {
    const char* name;
    Shape shape;
    vr::TextureID_t textureId;
    const char* bodyComponent; // render model of the "body" component, null when there is none
};

const KnownModel KNOWN_MODELS[] = {
    {"simvr_controller", Shape::Handle, 1, "simvr_controller_body"},
    {"simvr_controller_body", Shape::Handle, 1, nullptr},
    {"simvr_hmd", Shape::Box, 2, nullptr},
};

constexpr uint32_t MODEL_COUNT = sizeof(KNOWN_MODELS) / sizeof(KNOWN_MODELS[0]);
constexpr const char* BODY = "body";

struct Checker {
    vr::TextureID_t id;
    uint8_t light[4];
    uint8_t dark[4];
};

const Checker CHECKERS[] = {
    {1, {200, 200, 200, 255}, {60, 60, 70, 255}},
    {2, {40, 90, 200, 255}, {20, 30, 80, 255}},
};

constexpr uint16_t TEXTURE_SIZE = 32;
constexpr uint16_t CHECKER_SQUARE = 8;

const KnownModel* findModel(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    for (const KnownModel& model : KNOWN_MODELS) {
        if (std::strcmp(model.name, name) == 0) {
            return &model;
        }
    }
    return nullptr;
}

const Checker* findChecker(vr::TextureID_t id) {
    for (const Checker& checker : CHECKERS) {
        if (checker.id == id) {
            return &checker;
        }
    }
    return nullptr;
}

vr::RenderModel_Vertex_t vertex(float x, float y, float z, float nx, float ny, float nz, float s, float t) {
    return {{{x, y, z}}, {{nx, ny, nz}}, {s, t}};
}

// A controller's handle: a closed cylinder along z, the front end at -z.
void buildHandle(std::vector<vr::RenderModel_Vertex_t>& vertices, std::vector<uint16_t>& indices) {
    constexpr int SEGMENTS = 12;
    constexpr float RADIUS = 0.02f;
    constexpr float HALF_LENGTH = 0.08f;
    constexpr float PI = 3.14159265f;
    for (int i = 0; i <= SEGMENTS; ++i) {
        const float angle = 2.0f * PI * static_cast<float>(i) / SEGMENTS;
        const float c = std::cos(angle);
        const float s = std::sin(angle);
        const float u = static_cast<float>(i) / SEGMENTS;
        vertices.push_back(vertex(RADIUS * c, RADIUS * s, -HALF_LENGTH, c, s, 0.0f, u, 0.0f));
        vertices.push_back(vertex(RADIUS * c, RADIUS * s, HALF_LENGTH, c, s, 0.0f, u, 1.0f));
    }
    for (int i = 0; i < SEGMENTS; ++i) {
        const auto a = static_cast<uint16_t>(2 * i);
        indices.insert(indices.end(), {a, static_cast<uint16_t>(a + 2), static_cast<uint16_t>(a + 1)});
        indices.insert(indices.end(), {static_cast<uint16_t>(a + 1), static_cast<uint16_t>(a + 2),
                                       static_cast<uint16_t>(a + 3)});
    }
    for (const float z : {-HALF_LENGTH, HALF_LENGTH}) {
        const float normal = z < 0.0f ? -1.0f : 1.0f;
        const auto centre = static_cast<uint16_t>(vertices.size());
        vertices.push_back(vertex(0.0f, 0.0f, z, 0.0f, 0.0f, normal, 0.5f, 0.5f));
        for (int i = 0; i < SEGMENTS; ++i) {
            const float angle = 2.0f * PI * static_cast<float>(i) / SEGMENTS;
            vertices.push_back(vertex(RADIUS * std::cos(angle), RADIUS * std::sin(angle), z, 0.0f, 0.0f,
                                      normal, 0.5f + 0.5f * std::cos(angle), 0.5f + 0.5f * std::sin(angle)));
        }
        for (int i = 0; i < SEGMENTS; ++i) {
            const auto first = static_cast<uint16_t>(centre + 1 + i);
            const auto second = static_cast<uint16_t>(centre + 1 + (i + 1) % SEGMENTS);
            if (normal < 0.0f) {
                indices.insert(indices.end(), {centre, second, first});
            } else {
                indices.insert(indices.end(), {centre, first, second});
            }
        }
    }
}

// A headset's body: a box 18 cm wide, 10 cm high and deep, with outward faces.
void buildBox(std::vector<vr::RenderModel_Vertex_t>& vertices, std::vector<uint16_t>& indices) {
    const float half[3] = {0.09f, 0.05f, 0.05f};
    for (int axis = 0; axis < 3; ++axis) {
        for (const float side : {-1.0f, 1.0f}) {
            const int u = (axis + 1) % 3;
            const int v = (axis + 2) % 3;
            const auto first = static_cast<uint16_t>(vertices.size());
            const float corners[4][2] = {{-1.0f, -1.0f}, {1.0f, -1.0f}, {1.0f, 1.0f}, {-1.0f, 1.0f}};
            for (const auto& corner : corners) {
                float position[3] = {};
                float normal[3] = {};
                position[axis] = side * half[axis];
                position[u] = corner[0] * half[u];
                position[v] = corner[1] * half[v];
                normal[axis] = side;
                vertices.push_back(vertex(position[0], position[1], position[2], normal[0], normal[1],
                                          normal[2], 0.5f + 0.5f * corner[0], 0.5f + 0.5f * corner[1]));
            }
            // (u, v, axis) is right-handed, so counter-clockwise corners face +axis.
            if (side > 0.0f) {
                indices.insert(indices.end(),
                               {first, static_cast<uint16_t>(first + 1), static_cast<uint16_t>(first + 2),
                                first, static_cast<uint16_t>(first + 2), static_cast<uint16_t>(first + 3)});
            } else {
                indices.insert(indices.end(),
                               {first, static_cast<uint16_t>(first + 2), static_cast<uint16_t>(first + 1),
                                first, static_cast<uint16_t>(first + 3), static_cast<uint16_t>(first + 2)});
            }
        }
    }
}

// The answer to a name request for something that does not exist: "" and length 0.
uint32_t noName(char* buffer, uint32_t bufferSize) {
    SimRuntime::copyString("", buffer, bufferSize);
    return 0;
}

// Counts a request against the loading polls of one name or texture: true while it is still "loading".
template <typename Key>
bool stillLoading(std::map<Key, uint32_t>& pollsLeft, const Key& key, uint32_t polls) {
    auto entry = pollsLeft.find(key);
    if (entry == pollsLeft.end()) {
        entry = pollsLeft.emplace(key, polls).first;
    }
    if (entry->second > 0) {
        --entry->second;
        return true;
    }
    pollsLeft.erase(entry);
    return false;
}

} // namespace

SimRenderModels::SimRenderModels() = default;

SimRenderModels::~SimRenderModels() = default;

vr::EVRRenderModelError SimRenderModels::LoadRenderModel_Async(const char* modelName,
                                                               vr::RenderModel_t** model) {
    if (modelName == nullptr || model == nullptr) {
        return vr::VRRenderModelError_InvalidArg;
    }
    *model = nullptr;
    const KnownModel* known = findModel(modelName);
    if (known == nullptr) {
        return vr::VRRenderModelError_InvalidModel;
    }
    const bool loading = SimRuntime::instance().locked([&](SimRuntime::State& state) {
        return stillLoading(state.modelPollsLeft, std::string(modelName), state.loadingPolls);
    });
    if (loading) {
        return vr::VRRenderModelError_Loading;
    }

    auto record = std::make_unique<ModelRecord>();
    if (known->shape == Shape::Handle) {
        buildHandle(record->vertices, record->indices);
    } else {
        buildBox(record->vertices, record->indices);
    }
    record->model.rVertexData = record->vertices.data();
    record->model.unVertexCount = static_cast<uint32_t>(record->vertices.size());
    record->model.rIndexData = record->indices.data();
    record->model.unTriangleCount = static_cast<uint32_t>(record->indices.size() / 3);
    record->model.diffuseTextureId = known->textureId;
    *model = &record->model;
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        ++state.renderModelLoads;
        models.emplace(&record->model, std::move(record));
    });
    return vr::VRRenderModelError_None;
}

void SimRenderModels::FreeRenderModel(vr::RenderModel_t* model) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        // Only what this runtime handed out is released, and only once.
        if (models.erase(model) != 0) {
            ++state.renderModelFrees;
        }
    });
}

vr::EVRRenderModelError SimRenderModels::LoadTexture_Async(vr::TextureID_t textureId,
                                                           vr::RenderModel_TextureMap_t** texture) {
    if (texture == nullptr) {
        return vr::VRRenderModelError_InvalidArg;
    }
    *texture = nullptr;
    const Checker* checker = findChecker(textureId);
    if (checker == nullptr) {
        return vr::VRRenderModelError_InvalidTexture;
    }
    bool fails = false;
    const bool loading = SimRuntime::instance().locked([&](SimRuntime::State& state) {
        fails = state.textureLoadFails;
        return stillLoading(state.texturePollsLeft, textureId, state.loadingPolls);
    });
    if (loading) {
        return vr::VRRenderModelError_Loading;
    }
    if (fails) {
        return vr::VRRenderModelError_InvalidTexture;
    }

    auto record = std::make_unique<TextureRecord>();
    record->rgba.resize(static_cast<size_t>(TEXTURE_SIZE) * TEXTURE_SIZE * 4);
    for (uint16_t y = 0; y < TEXTURE_SIZE; ++y) {
        for (uint16_t x = 0; x < TEXTURE_SIZE; ++x) {
            const bool light = ((x / CHECKER_SQUARE) + (y / CHECKER_SQUARE)) % 2 == 0;
            std::memcpy(&record->rgba[(static_cast<size_t>(y) * TEXTURE_SIZE + x) * 4],
                        light ? checker->light : checker->dark, 4);
        }
    }
    record->map.unWidth = TEXTURE_SIZE;
    record->map.unHeight = TEXTURE_SIZE;
    record->map.rubTextureMapData = record->rgba.data();
    *texture = &record->map;
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        ++state.textureLoads;
        textures.emplace(&record->map, std::move(record));
    });
    return vr::VRRenderModelError_None;
}

void SimRenderModels::FreeTexture(vr::RenderModel_TextureMap_t* texture) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        if (textures.erase(texture) != 0) {
            ++state.textureFrees;
        }
    });
}

vr::EVRRenderModelError SimRenderModels::LoadTextureD3D11_Async(vr::TextureID_t, void*, void** d3d11Texture) {
    if (d3d11Texture != nullptr) {
        *d3d11Texture = nullptr;
    }
    return vr::VRRenderModelError_NotSupported;
}

vr::EVRRenderModelError SimRenderModels::LoadIntoTextureD3D11_Async(vr::TextureID_t, void*) {
    return vr::VRRenderModelError_NotSupported;
}

void SimRenderModels::FreeTextureD3D11(void*) {}

uint32_t SimRenderModels::GetRenderModelName(uint32_t index, char* modelName, uint32_t nameSize) {
    if (index >= MODEL_COUNT) {
        return noName(modelName, nameSize);
    }
    return SimRuntime::copyString(KNOWN_MODELS[index].name, modelName, nameSize);
}

uint32_t SimRenderModels::GetRenderModelCount() {
    return MODEL_COUNT;
}

uint32_t SimRenderModels::GetComponentCount(const char* modelName) {
    const KnownModel* known = findModel(modelName);
    return known != nullptr && known->bodyComponent != nullptr ? 1 : 0;
}

uint32_t SimRenderModels::GetComponentName(const char* modelName, uint32_t index, char* componentName,
                                           uint32_t nameSize) {
    if (index >= GetComponentCount(modelName)) {
        return noName(componentName, nameSize);
    }
    return SimRuntime::copyString(BODY, componentName, nameSize);
}

uint64_t SimRenderModels::GetComponentButtonMask(const char*, const char*) {
    return 0;
}

uint32_t SimRenderModels::GetComponentRenderModelName(const char* modelName, const char* componentName,
                                                      char* componentModelName, uint32_t nameSize) {
    if (!RenderModelHasComponent(modelName, componentName)) {
        return noName(componentModelName, nameSize);
    }
    return SimRuntime::copyString(findModel(modelName)->bodyComponent, componentModelName, nameSize);
}

bool SimRenderModels::GetComponentState(const char*, const char*, const vr::VRControllerState_t*,
                                        const vr::RenderModel_ControllerMode_State_t*,
                                        vr::RenderModel_ComponentState_t*) {
    return false;
}

bool SimRenderModels::RenderModelHasComponent(const char* modelName, const char* componentName) {
    return componentName != nullptr && std::strcmp(componentName, BODY) == 0 &&
           GetComponentCount(modelName) > 0;
}

uint32_t SimRenderModels::GetRenderModelThumbnailURL(const char* modelName, char* url, uint32_t urlSize,
                                                     vr::EVRRenderModelError* error) {
    const bool known = findModel(modelName) != nullptr;
    if (error != nullptr) {
        *error = known ? vr::VRRenderModelError_None : vr::VRRenderModelError_InvalidModel;
    }
    return known ? SimRuntime::copyString("", url, urlSize) : noName(url, urlSize);
}

uint32_t SimRenderModels::GetRenderModelOriginalPath(const char* modelName, char* path, uint32_t pathSize,
                                                     vr::EVRRenderModelError* error) {
    const KnownModel* known = findModel(modelName);
    if (error != nullptr) {
        *error = known != nullptr ? vr::VRRenderModelError_None : vr::VRRenderModelError_InvalidModel;
    }
    if (known == nullptr) {
        return noName(path, pathSize);
    }
    return SimRuntime::copyString(std::string("simvr/rendermodels/") + known->name, path, pathSize);
}

const char* SimRenderModels::GetRenderModelErrorNameFromEnum(vr::EVRRenderModelError error) {
    switch (error) {
    case vr::VRRenderModelError_None:
        return "VRRenderModelError_None";
    case vr::VRRenderModelError_Loading:
        return "VRRenderModelError_Loading";
    case vr::VRRenderModelError_NotSupported:
        return "VRRenderModelError_NotSupported";
    case vr::VRRenderModelError_InvalidArg:
        return "VRRenderModelError_InvalidArg";
    case vr::VRRenderModelError_InvalidModel:
        return "VRRenderModelError_InvalidModel";
    case vr::VRRenderModelError_NoShapes:
        return "VRRenderModelError_NoShapes";
    case vr::VRRenderModelError_MultipleShapes:
        return "VRRenderModelError_MultipleShapes";
    case vr::VRRenderModelError_TooManyVertices:
        return "VRRenderModelError_TooManyVertices";
    case vr::VRRenderModelError_MultipleTextures:
        return "VRRenderModelError_MultipleTextures";
    case vr::VRRenderModelError_BufferTooSmall:
        return "VRRenderModelError_BufferTooSmall";
    case vr::VRRenderModelError_NotEnoughNormals:
        return "VRRenderModelError_NotEnoughNormals";
    case vr::VRRenderModelError_NotEnoughTexCoords:
        return "VRRenderModelError_NotEnoughTexCoords";
    case vr::VRRenderModelError_InvalidTexture:
        return "VRRenderModelError_InvalidTexture";
    }
    return "Unknown EVRRenderModelError";
}

} // namespace SimVR
