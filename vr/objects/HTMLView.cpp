#include "vr/objects/HTMLView.h"

#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/GLFunctions.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Texture.h"
#include "platform/Log.h"
#include "vr/LibrarySettings.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/DoubleBufferedTexture.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;

struct QuadVertex {
    float position[3];
    float texCoord[2];
};

// A press becomes a drag after this many frames, or earlier once it moves CLICK_SLOP pixels or more.
constexpr std::int32_t CLICK_FRAMES = 20;
constexpr std::int64_t CLICK_SLOP = 51;

// Shared by every tablet: a drag belongs to the hand, not to a page.
std::uint32_t pressX = 0;
std::uint32_t pressY = 0;
std::int32_t heldFrames = 0;

// Without a headset the tablet is shown on its own, 0.8 m in front of an 800 x 800 desktop camera, where
// its 0.6 m edge fills most of the picture.
Mat4d<float> desktopProjection() {
    return Mat4d<float>::perspective(800.0f, 800.0f, -0.2f, -1000.0f, 0.7853982f, 0.0f, 0.0f) *
           Mat4d<float>::translationMatrix({0.0f, 0.0f, -0.8f});
}

float determinant(const Vec3d<float>& a, const Vec3d<float>& b, const Vec3d<float>& c) {
    return a.dot(b.cross(c));
}

} // namespace

HTMLView::HTMLView(VR::IVRView& view) : view(&view) {
    const float s = halfSize;
    auto vertices = std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, sizeof(QuadVertex),
        std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                              {"VertexTexCoord", GL_FLOAT, 2, 12}});
    vertices->setData(std::vector<QuadVertex>{
        {{-s, -s, 0}, {0, 0}}, {{s, -s, 0}, {1, 0}}, {{-s, s, 0}, {0, 1}}, {{s, s, 0}, {1, 1}}});
    quad = std::make_shared<Brume::Geometry>(GL_TRIANGLE_STRIP);
    quad->addBuffer(vertices);
    material = VR::SharedMaterials::get("Tablet", [] {
        auto made = std::make_shared<Brume::Material>();
        const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
        made->loadShaders(settings.shaderPath("Texture.vrt"), "", settings.shaderPath("Tablet.frg"));
        return made;
    });
}

HTMLView::~HTMLView() = default;
HTMLView::HTMLView(const HTMLView&) = default;
HTMLView::HTMLView(HTMLView&&) noexcept = default;
HTMLView& HTMLView::operator=(const HTMLView&) = default;
HTMLView& HTMLView::operator=(HTMLView&&) noexcept = default;

void HTMLView::setVrEnabled(bool enabled) {
    vrEnabled = enabled;
}

void HTMLView::draw(Brume::Renderer& renderer, const Mat4d<float>& modelViewProjection,
                    std::shared_ptr<Brume::Texture> placeholder, bool stencilPass) {
    if (stencilPass) {
        glStencilFunc(GL_ALWAYS, static_cast<GLint>(STENCIL_START_INDEX), 0xFFFFFFFF);
        glStencilMask(0xFF);
    }

    const unsigned char* pixels = nullptr;
    int width = 0;
    int height = 0;
    const bool offered = view->getHtmlImage(pixels, width, height);
    if (offered && (pixels == nullptr || width <= 0 || height <= 0)) {
        if (!emptyPageReported) {
            VR::logLine(L"Tablet page of %d x %d pixels cannot be shown; keeping the last page\n", width,
                        height);
            emptyPageReported = true;
        }
    } else if (offered) {
        const int largest = Brume::maxTextureSize();
        if (width > largest || height > largest) {
            // GL cannot hold such a page; the tablet keeps the last one it could show.
            if (!oversizeReported) {
                VR::logLine(L"Tablet page of %d x %d pixels is larger than %d; keeping the last page\n",
                            width, height, largest);
                oversizeReported = true;
            }
        } else {
            if (!pageTexture || pageTexture->width() != width || pageTexture->height() != height) {
                pageTexture = std::make_shared<DoubleBufferedTexture>(width, height, GL_BGRA);
            }
            pageTexture->back()->setData(pixels, 4);
            pageTexture->swap();
        }
    }

    std::shared_ptr<Brume::Texture> shown = pageTexture ? pageTexture->front() : std::move(placeholder);
    if (!shown) {
        return;
    }
    material->set("flipImage", true);
    material->set("drawLaserDot", false);
    material->set("modelViewProjectionMatrix", vrEnabled ? modelViewProjection : desktopProjection());
    material->set("tex", shown);
    renderer.draw(material, quad, 0, 0);
}

bool HTMLView::getTabletClickPos(const Mat4d<float>& tabletPose, const Mat4d<float>& controllerPose,
                                 Vec3d<float>& hitPoint, float& u, float& v) {
    const float s = halfSize;
    const Vec3d<float> x = tabletPose.column(0);
    const Vec3d<float> y = tabletPose.column(1);
    const Vec3d<float> t = tabletPose.translation();
    const Vec3d<float> topLeft = t - x * s + y * s;
    const Vec3d<float> topRight = t + x * s + y * s;
    const Vec3d<float> bottomLeft = t - x * s - y * s;
    const Vec3d<float> e1 = topRight - topLeft;
    const Vec3d<float> e2 = bottomLeft - topLeft;

    const Vec3d<float> origin = controllerPose.translation();
    const Vec3d<float> direction = controllerPose.column(2);

    // origin + along * direction = topLeft + u * e1 + v * e2, as a 3 x 3 system for (along, u, v).
    const Vec3d<float> rhs = topLeft - origin;
    const float det = determinant(direction, -e1, -e2);
    if (det == 0) {
        return false;
    }
    const float along = determinant(rhs, -e1, -e2) / det;
    u = determinant(direction, rhs, -e2) / det;
    v = determinant(direction, -e1, rhs) / det;
    hitPoint = origin + direction * along;
    // The controller points down its negative z axis, so only negative distances lie ahead of it.
    return u >= 0 && u <= 1 && v >= 0 && v <= 1 && along < 0;
}

bool HTMLView::handleInput(const Mat4d<float>& tabletPose, const Mat4d<float>& controllerPose, bool pressed,
                           Vec3d<float>& hitPoint) {
    const bool justPressed = pressed && !buttonDown;
    const bool released = buttonDown && !pressed;
    buttonDown = pressed;

    float u = 0;
    float v = 0;
    if (!getTabletClickPos(tabletPose, controllerPose, hitPoint, u, v)) {
        return false;
    }
    const int pageWidth = pageTexture ? pageTexture->width() : 0;
    const int pageHeight = pageTexture ? pageTexture->height() : 0;
    const int x = static_cast<int>(static_cast<float>(pageWidth) * u);
    const int y = static_cast<int>(static_cast<float>(pageHeight) * v);

    if (justPressed) {
        view->sendHtmlButton(x, y, false);
        pressX = static_cast<std::uint32_t>(x);
        pressY = static_cast<std::uint32_t>(y);
        heldFrames = 0;
        return true;
    }
    if (released) {
        view->sendHtmlButton(x, y, true);
        return true;
    }
    if (!pressed) {
        view->sendHtmlPointerMove(x, y, true);
        return true;
    }

    const int atPressX = static_cast<int>(pressX);
    const int atPressY = static_cast<int>(pressY);
    if (heldFrames == CLICK_FRAMES) {
        view->sendHtmlPointerMove(atPressX, atPressY, false);
        heldFrames = CLICK_FRAMES + 1;
    } else if (heldFrames < CLICK_FRAMES) {
        const std::int64_t dx = std::llabs(static_cast<std::int64_t>(pressX) - x);
        const std::int64_t dy = std::llabs(static_cast<std::int64_t>(pressY) - y);
        if (dx < CLICK_SLOP && dy < CLICK_SLOP) {
            ++heldFrames;
        } else {
            // The drag starts where the press was, so the page sees the whole movement.
            view->sendHtmlPointerMove(atPressX, atPressY, false);
            heldFrames = CLICK_FRAMES + 2;
        }
    } else {
        view->sendHtmlPointerMove(x, y, false);
        ++heldFrames;
    }
    return true;
}
