#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "common/Vec3d.h"
#include "examples/PointCloud.h"

namespace Demo {

// Level-of-detail cells over a cloud's points, so that a view of a huge cloud costs what it shows rather
// than what the cloud holds.
//
// The points are sorted into a uniform grid and, where a grid cell holds many, into the octants of its
// octree down to cells of a few thousand points. Inside a cell the points are ordered so that any prefix of
// them is an even subsample of the whole cell: the first k points are spread over all of its surfaces in
// proportion to their density, thinned k/n-fold everywhere. A cell far away is read as a prefix that just
// fills its pixels; its points then stand for a spacing sqrt(n/k) times their own.
//
// The spacing of a point at full detail (the distance to its neighbours on the scanned surface) is
// estimated once, from how many points share its part of the grid cell, bounded by the cell's surfaces and
// by the cloud's typical spacing.
//
// Built on the constructing thread with help from the machine's other cores; reorders the points it is
// given in place and refers to them by index afterwards, so the owner keeps them unchanged while the index
// lives. Immutable once built: any number of threads may read it.
class PointIndex {
public:
    struct Cell {
        Ko_1_1::Vec3d<float> min; // bounding box of its points
        Ko_1_1::Vec3d<float> max;
        std::uint32_t begin; // its points [begin, end), in subsample order
        std::uint32_t end;
        // Where its points' spacings start in the spacing table: point i has spacing
        // spacings()[spacingBase + parts()[i]].
        std::uint32_t spacingBase;
        // The spacing of its typical point at full detail, and of its sparsest.
        float spacing;
        float maxSpacing;
        // The normal of the plane its points lie on, or zero where they do not lie on one: a plane seen at a
        // slant crowds its points into fewer pixels.
        Ko_1_1::Vec3d<float> normal;
        // How far its points stray from that plane (their standard deviation along the normal): the
        // scanner's noise.
        float thickness;
    };

    PointIndex() = default;
    // Reorders points; progress (may be empty) hears fractions from 0 to 1 on the constructing thread, a few
    // times a second at most and 1 at the end.
    PointIndex(std::vector<PointCloud::Point>& points, const std::function<void(double fraction)>& progress);

    const std::vector<Cell>& cells() const { return cells_; }
    const std::vector<float>& spacings() const { return spacings_; }
    // For each point, which part of its grid cell it lies in: selects its spacing.
    const std::uint8_t* parts() const { return parts_.data(); }
    // The median spacing over the cloud.
    float typicalSpacing() const { return typicalSpacing_; }

    // How many of a cell's first points fill the pixels of a pinhole camera looking along `forward` (a unit
    // vector) that sees the cell in `direction` (a unit vector from the eye), where its pixels on the axis
    // are pixelSize wide (in the cloud's units) at the cell's depth: all of them where the cell is sparser
    // than that, fewer where its points would crowd several to a pixel. At least one.
    static std::uint32_t pointsFor(const Cell& cell, float pixelSize, const Ko_1_1::Vec3d<float>& direction,
                                   const Ko_1_1::Vec3d<float>& forward);

    // Planes seen at a slant count as seen at this angle's cosine at least: beyond it the footprints that
    // close them would grow wider than the detail they save is worth.
    static constexpr float MIN_FACING = 0.25f;
    // Most points a cell holds unless they crowd into a sliver of space too thin to split further.
    static constexpr std::uint32_t MAX_CELL_POINTS = 4096;

private:
    struct Grid;
    class CellBuilder;
    // Sorts the points by grid cell; where each grid cell's points start, and the end.
    std::vector<std::uint32_t> sortIntoGrid(std::vector<PointCloud::Point>& points, const Grid& grid,
                                            const std::function<void(double)>& report);
    void buildCells(std::vector<PointCloud::Point>& points, const Grid& grid,
                    const std::vector<std::uint32_t>& start, const std::function<void(double)>& report);

    std::vector<Cell> cells_;
    std::vector<float> spacings_;
    std::vector<std::uint8_t> parts_;
    float typicalSpacing_ = 0.0f;
};

} // namespace Demo
