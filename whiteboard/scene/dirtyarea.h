#pragma once

#include <QPainterPath>
#include <QRegion>

namespace whiteboard {

// One recorded change of a layer. It only decides whether a frame is due:
// every frame is composed in full.
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
};

} // namespace whiteboard
