#pragma once

#include <string>
#include <vector>

#include "common/AnnotationData.h"
#include "common/Mat4d.h"
#include "common/MeasurementData.h"
#include "common/MeshData.h"
#include "common/Point3dRGBA.h"
#include "common/StringVal.h"
#include "common/Vec3d.h"

namespace VR {

// The host's side of the viewer: the library asks for data and reports events only through these slots,
// by position, so the order below is part of the binary interface and never changes.
//
// Threads: queryPoints runs on the point grabber thread, getMeasurements and getAnnotations on the object
// grabber thread, every other slot on the render thread. The library never owns or deletes the view.
class IVRView {
public:
    // 0
    virtual void queryPoints(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                             float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                             Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) = 0;
    // 1
    virtual std::vector<VR::MeasurementData> getMeasurements() = 0;
    // 2
    virtual std::vector<VR::AnnotationData> getAnnotations() = 0;
    // 3: kept for the slot order; the library never calls it.
    virtual void reservedSlot3() = 0;
    // 4
    virtual void getMeshes(std::vector<VR::MeshData>& meshes) = 0;
    // 5
    virtual bool getHtmlImage(const unsigned char*& pixels, int& width, int& height) = 0;
    // 6
    virtual void sendHtmlPointerMove(int x, int y, bool state) = 0;
    // 7
    virtual void sendHtmlButton(int x, int y, bool state) = 0;
    // 8
    virtual void onVrClosed() = 0;
    // 9
    virtual void onMeasurementFinished(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) = 0;
    // 10
    virtual void onMeasurementPointAdded(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) = 0;
    // 11
    virtual void getPendingMeasurement(VR::MeasurementData& measurement) = 0;
    // 12
    virtual void onObjectClicked(Ko_1_1::StringVal* id) = 0;
    // 13
    virtual void onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                              const Ko_1_1::Mat4d<float>& view) = 0;
    // 14
    virtual void setHeadsetKind(int kind) = 0;
    // 15
    virtual bool takeFlyToRequest(Ko_1_1::Vec3d<float>& target, float& distance,
                                  Ko_1_1::Vec3d<float>& direction) = 0;
    // 16
    virtual void setViewTransform(const Ko_1_1::Mat4d<float>& transform) = 0;
    // 17: kept for the slot order; the library never calls it.
    virtual void reservedSlot17() = 0;
    // 18
    virtual bool isHeightLocked() = 0;
    // 19: kept for the slot order; the library never calls it.
    virtual void reservedSlot19() = 0;
    // 20
    virtual int getPointSize() = 0;
    // 21
    virtual std::string getLengthUnitText() = 0;
    // 22
    virtual std::string formatLength(float length) = 0;
    // 23
    virtual bool hasPendingMeasurement() = 0;
    // 24
    virtual void clearPendingMeasurement() = 0;
    // 25: kept for the slot order; the library never calls it.
    virtual void reservedSlot25() = 0;
    // 26
    virtual bool isMeshVisible() = 0;
    // 27
    virtual bool loadMeshData(Ko_1_1::StringVal* const& path, std::vector<float>& positions,
                              std::vector<float>& attributes, std::vector<unsigned int>& indices) = 0;

    IVRView() = default;
    IVRView(const IVRView&) = default;
    IVRView(IVRView&&) = default;
    IVRView& operator=(const IVRView&) = default;
    IVRView& operator=(IVRView&&) = default;

protected:
    // Not virtual by design (the slot table holds exactly the 28 operations); the library never deletes a
    // view, and keeping it protected stops anyone from deleting through this interface.
    ~IVRView() = default;
};

static_assert(sizeof(IVRView) == sizeof(void*), "IVRView has no data members");

} // namespace VR
