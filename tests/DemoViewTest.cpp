#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "examples/DemoView.h"
#include "support/TempFolder.h"

// The viewer reaches the host only through the interface, so the test does too.
namespace {

void click(VR::IVRView& view, Demo::TabletPage::Action action) {
    const Demo::TabletPage::Rect r = Demo::TabletPage::buttonRect(action);
    view.sendHtmlButton(r.x + r.width / 2, r.y + r.height / 2, false);
    view.sendHtmlButton(r.x + r.width / 2, r.y + r.height / 2, true);
}

} // namespace

// A measurement from the viewer's two points to the file, and the tablet's buttons acting on the host, all
// through the interface the viewer calls; the scan lies at survey coordinates, and the viewer's coordinates
// are relative to its origin.
TEST(DemoView, SavesFinishedMeasurementsAndObeysTheTablet) {
    OrvelTest::TempFolder folder;
    const std::string path = folder.path("room.measurements.json");
    const Ko_1_1::Vec3d<double> origin{512000.0, 5000000.0, 100.0};
    Demo::PointCloud cloud(origin);
    cloud.addWorld(512000.0, 5000005.0, 101.5, 9, 8, 7);
    Demo::HostObjects objects;
    objects.measurements = std::make_shared<Demo::MeasurementStore>(path);
    objects.measurements->setOrigin(origin);
    objects.origin = origin;
    Demo::DemoView demo(std::make_shared<const Demo::VisibilityQuery>(std::move(cloud)), std::move(objects));
    VR::IVRView& view = demo;

    const unsigned char* pixels = nullptr;
    int width = 0, height = 0;
    ASSERT_TRUE(view.getHtmlImage(pixels, width, height));
    EXPECT_EQ(width, Demo::TabletPage::WIDTH);
    EXPECT_FALSE(view.getHtmlImage(pixels, width, height));

    EXPECT_FALSE(view.hasPendingMeasurement());
    view.onMeasurementPointAdded({1.0f, 2.0f, 0.0f}, 0.02f, 1);
    EXPECT_FALSE(view.hasPendingMeasurement());
    view.onMeasurementFinished({1.0f, 2.0f, 2.35f}, 0.03f, 1);
    ASSERT_TRUE(view.hasPendingMeasurement());
    VR::MeasurementData pending;
    view.getPendingMeasurement(pending);
    view.clearPendingMeasurement();
    EXPECT_FALSE(view.hasPendingMeasurement());
    EXPECT_EQ(pending.uuid.size(), 36u);
    EXPECT_EQ(pending.points, (std::vector<Ko_1_1::Vec3d<float>>{{1.0f, 2.0f, 0.0f}, {1.0f, 2.0f, 2.35f}}));
    EXPECT_EQ(view.formatLength(2.35f) + " " + view.getLengthUnitText(), "2.35 m");

    const std::vector<VR::MeasurementData> listed = view.getMeasurements();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].uuid, pending.uuid);
    const auto saved = Demo::MeasurementStore(path).measurements();
    ASSERT_EQ(saved.size(), 1u) << "written as soon as it was finished";
    EXPECT_EQ(saved[0].uuid, pending.uuid);
    EXPECT_EQ(saved[0].points[1].y, 5000002.0f) << "in world coordinates";
    EXPECT_TRUE(view.getHtmlImage(pixels, width, height)) << "the page lists the new measurement";

    click(view, Demo::TabletPage::Action::DeleteLast);
    EXPECT_TRUE(view.getMeasurements().empty());
    EXPECT_TRUE(Demo::MeasurementStore(path).measurements().empty());

    for (int i = 0; i < 10; ++i) {
        click(view, Demo::TabletPage::Action::PointSizeUp);
    }
    EXPECT_EQ(view.getPointSize(), Demo::DemoView::MAX_POINT_SIZE);
    click(view, Demo::TabletPage::Action::PointSizeDown);
    EXPECT_EQ(view.getPointSize(), Demo::DemoView::MAX_POINT_SIZE - 1);

    std::vector<VR::Point3dRGBA> points;
    click(view, Demo::TabletPage::Action::ToggleStreaming);
    view.queryPoints(1.2f, 100, 100, 0.02f, 1000.0f, {0.0, 0.0, 1.5}, {0, 0, 1}, {0, -1, 0}, points);
    EXPECT_TRUE(points.empty()) << "paused";
    click(view, Demo::TabletPage::Action::ToggleStreaming);
    view.queryPoints(1.2f, 100, 100, 0.02f, 1000.0f, {0.0, 0.0, 1.5}, {0, 0, 1}, {0, -1, 0}, points);
    EXPECT_EQ(points.size(), 1u);
}
