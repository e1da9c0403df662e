#pragma once

// The part of the OpenVR 1.0.9 binary interface this project uses, declared by the project itself: the
// runtime talks to a client only through these layouts and virtual-table slots, so every slot is
// declared in order (used or not) and every size and offset is checked at compile time.

#include <cstddef>
#include <cstdint>

namespace vr {

typedef uint32_t TrackedDeviceIndex_t;
typedef int32_t TextureID_t;
typedef uint32_t glUInt_t;
typedef void* glSharedTextureHandle_t;

static const uint32_t k_unMaxTrackedDeviceCount = 16;
static const TrackedDeviceIndex_t k_unTrackedDeviceIndex_Hmd = 0;
static const TrackedDeviceIndex_t k_unTrackedDeviceIndexInvalid = 0xFFFFFFFF;

static const char* const IVRSystem_Version = "IVRSystem_016";
static const char* const IVRCompositor_Version = "IVRCompositor_020";
static const char* const IVRRenderModels_Version = "IVRRenderModels_005";
static const char* const IVRSettings_Version = "IVRSettings_002";

static const char* const k_pch_SteamVR_Section = "steamvr";
static const char* const k_pch_SteamVR_SupersampleScale_Float = "supersampleScale";

enum EVREye : int32_t { Eye_Left = 0, Eye_Right = 1 };

enum EVRApplicationType : int32_t { VRApplication_Other = 0, VRApplication_Scene = 1 };

enum EVRInitError : int32_t {
    VRInitError_None = 0,
    VRInitError_Unknown = 1,
    VRInitError_Init_InstallationNotFound = 100,
    VRInitError_Init_InstallationCorrupt = 101,
    VRInitError_Init_VRClientDLLNotFound = 102,
    VRInitError_Init_FileNotFound = 103,
    VRInitError_Init_FactoryNotFound = 104,
    VRInitError_Init_InterfaceNotFound = 105,
    VRInitError_Init_InvalidInterface = 106,
    VRInitError_Init_UserConfigDirectoryInvalid = 107,
    VRInitError_Init_HmdNotFound = 108,
    VRInitError_Init_NotInitialized = 109,
    VRInitError_Init_PathRegistryNotFound = 110,
};

enum ETextureType : int32_t { TextureType_DirectX = 0, TextureType_OpenGL = 1 };
enum EColorSpace : int32_t { ColorSpace_Auto = 0, ColorSpace_Gamma = 1, ColorSpace_Linear = 2 };
enum EVRSubmitFlags : int32_t { Submit_Default = 0 };

enum EVRCompositorError : int32_t {
    VRCompositorError_None = 0,
    VRCompositorError_RequestFailed = 1,
    VRCompositorError_IncompatibleVersion = 100,
    VRCompositorError_DoNotHaveFocus = 101,
    VRCompositorError_InvalidTexture = 102,
    VRCompositorError_IsNotSceneApplication = 103,
    VRCompositorError_TextureIsOnWrongDevice = 104,
    VRCompositorError_TextureUsesUnsupportedFormat = 105,
    VRCompositorError_SharedTexturesNotSupported = 106,
    VRCompositorError_IndexOutOfRange = 107,
    VRCompositorError_AlreadySubmitted = 108,
};

enum EVRRenderModelError : int32_t {
    VRRenderModelError_None = 0,
    VRRenderModelError_Loading = 100,
    VRRenderModelError_NotSupported = 200,
    VRRenderModelError_InvalidArg = 300,
    VRRenderModelError_InvalidModel = 301,
    VRRenderModelError_NoShapes = 302,
    VRRenderModelError_MultipleShapes = 303,
    VRRenderModelError_TooManyVertices = 304,
    VRRenderModelError_MultipleTextures = 305,
    VRRenderModelError_BufferTooSmall = 306,
    VRRenderModelError_NotEnoughNormals = 307,
    VRRenderModelError_NotEnoughTexCoords = 308,
    VRRenderModelError_InvalidTexture = 400,
};

enum ETrackedDeviceClass : int32_t {
    TrackedDeviceClass_Invalid = 0,
    TrackedDeviceClass_HMD = 1,
    TrackedDeviceClass_Controller = 2,
    TrackedDeviceClass_GenericTracker = 3,
    TrackedDeviceClass_TrackingReference = 4,
};

enum ETrackedControllerRole : int32_t {
    TrackedControllerRole_Invalid = 0,
    TrackedControllerRole_LeftHand = 1,
    TrackedControllerRole_RightHand = 2,
};

enum ETrackedDeviceProperty : int32_t {
    Prop_Invalid = 0,
    Prop_TrackingSystemName_String = 1000,
    Prop_ModelNumber_String = 1001,
    Prop_SerialNumber_String = 1002,
    Prop_RenderModelName_String = 1003,
    Prop_DisplayFrequency_Float = 2002,
};

enum ETrackedPropertyError : int32_t {
    TrackedProp_Success = 0,
    TrackedProp_WrongDataType = 1,
    TrackedProp_WrongDeviceClass = 2,
    TrackedProp_BufferTooSmall = 3,
    TrackedProp_UnknownProperty = 4,
    TrackedProp_InvalidDevice = 5,
    TrackedProp_CouldNotContactServer = 6,
    TrackedProp_ValueNotProvidedByDevice = 7,
    TrackedProp_StringExceedsMaximumLength = 8,
    TrackedProp_NotYetAvailable = 9,
};

enum ETrackingResult : int32_t {
    TrackingResult_Uninitialized = 1,
    TrackingResult_Calibrating_InProgress = 100,
    TrackingResult_Calibrating_OutOfRange = 101,
    TrackingResult_Running_OK = 200,
    TrackingResult_Running_OutOfRange = 201,
};

enum ETrackingUniverseOrigin : int32_t {
    TrackingUniverseSeated = 0,
    TrackingUniverseStanding = 1,
    TrackingUniverseRawAndUncalibrated = 2,
};

enum EVRButtonId : int32_t {
    k_EButton_System = 0,
    k_EButton_ApplicationMenu = 1,
    k_EButton_Grip = 2,
    k_EButton_A = 7,
    k_EButton_Axis0 = 32,
    k_EButton_Axis1 = 33,
    k_EButton_SteamVR_Touchpad = k_EButton_Axis0,
    k_EButton_SteamVR_Trigger = k_EButton_Axis1,
    k_EButton_Max = 64,
};

inline uint64_t ButtonMaskFromId(EVRButtonId id) {
    return 1ull << id;
}

// Enums that appear only in slots the project does not use: declared minimally, 32 bits like all others.
enum EVRFirmwareError : int32_t { VRFirmwareError_None = 0 };
enum EDeviceActivityLevel : int32_t { k_EDeviceActivityLevel_Unknown = -1 };
enum EVREventType : int32_t { VREvent_None = 0 };
enum EVRControllerAxisType : int32_t { k_eControllerAxis_None = 0 };
enum EHiddenAreaMeshType : int32_t { k_eHiddenAreaMesh_Standard = 0 };
enum EVRSettingsError : int32_t { VRSettingsError_None = 0, VRSettingsError_ReadFailed = 3 };

struct HmdMatrix34_t {
    float m[3][4];
};

struct HmdMatrix44_t {
    float m[4][4];
};

struct HmdVector3_t {
    float v[3];
};

struct HmdVector2_t {
    float v[2];
};

struct HmdColor_t {
    float r, g, b, a;
};

struct TrackedDevicePose_t {
    HmdMatrix34_t mDeviceToAbsoluteTracking;
    HmdVector3_t vVelocity;
    HmdVector3_t vAngularVelocity;
    ETrackingResult eTrackingResult;
    bool bPoseIsValid;
    bool bDeviceIsConnected;
};

struct Texture_t {
    void* handle;
    ETextureType eType;
    EColorSpace eColorSpace;
};

struct VRTextureBounds_t {
    float uMin, vMin;
    float uMax, vMax;
};

struct DistortionCoordinates_t {
    float rfRed[2];
    float rfGreen[2];
    float rfBlue[2];
};

struct HiddenAreaMesh_t {
    const HmdVector2_t* pVertexData;
    uint32_t unTriangleCount;
};

struct Compositor_FrameTiming;
struct Compositor_CumulativeStats;
struct VREvent_t;
struct RenderModel_ControllerMode_State_t;
struct RenderModel_ComponentState_t;
struct VkPhysicalDevice_T;

// The SDK keeps an early mis-packing of these three structures on Linux and macOS.
#if !defined(_WIN32)
#pragma pack(push, 4)
#endif

struct VRControllerAxis_t {
    float x;
    float y;
};

static const uint32_t k_unControllerStateAxisCount = 5;

struct VRControllerState001_t {
    uint32_t unPacketNum;
    uint64_t ulButtonPressed;
    uint64_t ulButtonTouched;
    VRControllerAxis_t rAxis[k_unControllerStateAxisCount];
};
typedef VRControllerState001_t VRControllerState_t;

struct RenderModel_Vertex_t {
    HmdVector3_t vPosition;
    HmdVector3_t vNormal;
    float rfTextureCoord[2];
};

struct RenderModel_t {
    const RenderModel_Vertex_t* rVertexData;
    uint32_t unVertexCount;
    const uint16_t* rIndexData;
    uint32_t unTriangleCount;
    TextureID_t diffuseTextureId;
};

struct RenderModel_TextureMap_t {
    uint16_t unWidth, unHeight;
    const uint8_t* rubTextureMapData;
};

#if !defined(_WIN32)
#pragma pack(pop)
#endif

// Layout checks: a mismatch here would break silently on a real runtime.
static_assert(sizeof(HmdMatrix34_t) == 48, "HmdMatrix34_t");
static_assert(sizeof(HmdMatrix44_t) == 64, "HmdMatrix44_t");
static_assert(sizeof(HmdVector3_t) == 12, "HmdVector3_t");
static_assert(sizeof(TrackedDevicePose_t) == 80, "TrackedDevicePose_t");
static_assert(offsetof(TrackedDevicePose_t, vVelocity) == 48, "TrackedDevicePose_t::vVelocity");
static_assert(offsetof(TrackedDevicePose_t, vAngularVelocity) == 60, "TrackedDevicePose_t::vAngularVelocity");
static_assert(offsetof(TrackedDevicePose_t, eTrackingResult) == 72, "TrackedDevicePose_t::eTrackingResult");
static_assert(offsetof(TrackedDevicePose_t, bPoseIsValid) == 76, "TrackedDevicePose_t::bPoseIsValid");
static_assert(offsetof(TrackedDevicePose_t, bDeviceIsConnected) == 77,
              "TrackedDevicePose_t::bDeviceIsConnected");
static_assert(sizeof(VRControllerAxis_t) == 8, "VRControllerAxis_t");
static_assert(sizeof(RenderModel_Vertex_t) == 32, "RenderModel_Vertex_t");
static_assert(offsetof(RenderModel_Vertex_t, vNormal) == 12, "RenderModel_Vertex_t::vNormal");
static_assert(offsetof(RenderModel_Vertex_t, rfTextureCoord) == 24, "RenderModel_Vertex_t::rfTextureCoord");
static_assert(sizeof(Texture_t) == 16, "Texture_t");
static_assert(offsetof(Texture_t, eType) == 8 && offsetof(Texture_t, eColorSpace) == 12, "Texture_t fields");
static_assert(sizeof(VRTextureBounds_t) == 16, "VRTextureBounds_t");
static_assert(sizeof(HiddenAreaMesh_t) == 16, "HiddenAreaMesh_t");
static_assert(sizeof(HmdColor_t) == 16, "HmdColor_t");
static_assert(sizeof(bool) == 1, "bool is one byte in the binary interface");
#if defined(_WIN32)
static_assert(sizeof(VRControllerState_t) == 64, "VRControllerState_t");
static_assert(offsetof(VRControllerState_t, ulButtonPressed) == 8, "VRControllerState_t::ulButtonPressed");
static_assert(offsetof(VRControllerState_t, ulButtonTouched) == 16, "VRControllerState_t::ulButtonTouched");
static_assert(offsetof(VRControllerState_t, rAxis) == 24, "VRControllerState_t::rAxis");
static_assert(sizeof(RenderModel_t) == 32, "RenderModel_t");
static_assert(offsetof(RenderModel_t, unVertexCount) == 8 && offsetof(RenderModel_t, rIndexData) == 16 &&
                  offsetof(RenderModel_t, unTriangleCount) == 24 &&
                  offsetof(RenderModel_t, diffuseTextureId) == 28,
              "RenderModel_t fields");
static_assert(sizeof(RenderModel_TextureMap_t) == 16, "RenderModel_TextureMap_t");
static_assert(offsetof(RenderModel_TextureMap_t, unHeight) == 2 &&
                  offsetof(RenderModel_TextureMap_t, rubTextureMapData) == 8,
              "RenderModel_TextureMap_t fields");
#else
static_assert(sizeof(VRControllerState_t) == 60, "VRControllerState_t");
static_assert(offsetof(VRControllerState_t, ulButtonPressed) == 4, "VRControllerState_t::ulButtonPressed");
static_assert(offsetof(VRControllerState_t, ulButtonTouched) == 12, "VRControllerState_t::ulButtonTouched");
static_assert(offsetof(VRControllerState_t, rAxis) == 20, "VRControllerState_t::rAxis");
static_assert(sizeof(RenderModel_t) == 28, "RenderModel_t");
static_assert(offsetof(RenderModel_t, unVertexCount) == 8 && offsetof(RenderModel_t, rIndexData) == 12 &&
                  offsetof(RenderModel_t, unTriangleCount) == 20 &&
                  offsetof(RenderModel_t, diffuseTextureId) == 24,
              "RenderModel_t fields");
static_assert(sizeof(RenderModel_TextureMap_t) == 12, "RenderModel_TextureMap_t");
static_assert(offsetof(RenderModel_TextureMap_t, unHeight) == 2 &&
                  offsetof(RenderModel_TextureMap_t, rubTextureMapData) == 4,
              "RenderModel_TextureMap_t fields");
#endif

} // namespace vr
