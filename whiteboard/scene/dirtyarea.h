#pragma once

#include <QPainterPath>
#include <QRegion>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

namespace whiteboard {

// One recorded change of a layer: whether a frame is due, and what of the
// kept page it repaints.
struct DirtyArea
{
    enum Kind { RegionKind = 0, PathKind = 1 };

    DirtyArea() = default;
    explicit DirtyArea(const QRegion& changed)
        : kind(RegionKind)
        , region(changed)
    {
    }
    explicit DirtyArea(const QPainterPath& changed)
        : kind(PathKind)
        , path(changed)
    {
    }

    int kind = RegionKind;
    QRegion region;
    QPainterPath path;

    // Whether the entry has a visible extent; a zero-width path has none.
    bool isVisible() const
    {
        if (kind == RegionKind) {
            const QRect r = region.boundingRect();
            return r.width() > 0 && r.height() > 0;
        }
        const QRectF r = path.boundingRect();
        return r.width() > 0.0 && r.height() > 0.0;
    }

    // `region` once it holds more than `maxRects` pieces: the tiles of a
    // grid (`tile` units, doubled until few enough) that its pieces touch.
    // Unions of many pieces cost more to query than they save, but their
    // bounding box would repaint a whole page for a burst of scattered
    // changes.
    static QRegion tiled(const QRegion& region, int maxRects, int tile = 64)
    {
        if (region.rectCount() <= maxRects)
            return region;
        QRegion result;
        // A grid of 128 tiles a side over the whole at most.
        const QRect bounds = region.boundingRect();
        int side = tile;
        while (bounds.width() / side > 128 || bounds.height() / side > 128)
            side *= 2;
        for (;; side *= 2) {
            // Rows first, so that the union is built in the order it is kept.
            std::set<std::pair<int, int>> tiles;
            for (const QRect& rect : region) {
                const int left = int(std::floor(double(rect.left()) / side));
                const int right = int(std::floor(double(rect.right()) / side));
                const int top = int(std::floor(double(rect.top()) / side));
                const int bottom = int(std::floor(double(rect.bottom()) / side));
                for (int y = top; y <= bottom; ++y) {
                    for (int x = left; x <= right; ++x)
                        tiles.emplace(y, x);
                }
            }
            result = QRegion();
            for (auto it = tiles.cbegin(); it != tiles.cend();) {
                // One run of neighbouring tiles in a row, as one rectangle.
                const int y = it->first;
                const int first = it->second;
                int last = first;
                for (++it; it != tiles.cend() && it->first == y && it->second == last + 1; ++it)
                    ++last;
                result += QRect(first * side, y * side, (last - first + 1) * side, side);
            }
            if (result.rectCount() <= maxRects * 4 || tiles.size() <= 1)
                return result;
        }
    }
};

} // namespace whiteboard
