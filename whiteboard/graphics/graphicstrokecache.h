#pragma once

#include <QBrush>
#include <QImage>
#include <QMutex>
#include <QPainterPath>
#include <QPen>
#include <QRectF>

#include <memory>

class QPainter;

namespace whiteboard {

class GraphicScene;

// The picture of a long stroke or polyline. The raster engine strokes a
// path at a cost that grows with the squares of its pieces' lengths and
// with their count: 100 pieces crossing a page take it most of a second,
// 20,000 take minutes, on the render thread, under itemsMutex, which the
// GUI thread then waits on. So such a path is drawn once per change, piece
// by piece, on the scene's pool, and frames show that picture; until it is
// ready they show a thinned-out stand-in of at most kStandInPieces plain
// lines.
class GraphicStrokeCache
{
public:
    // Past either, a path is painted from its picture: about 30 ms of
    // stroking as one path.
    static constexpr int kMaxDirectElements = 1000;
    static constexpr double kMaxDirectSquaredLength = 2.0e6;
    static constexpr int kStandInPieces = 256;
    // Pixels of one picture; a larger stroke is drawn at a lower resolution.
    static constexpr qint64 kMaxPixels = 2048 * 2048;

    static bool wanted(const QPainterPath& path);

    // Render thread, under itemsMutex. Paints `path` stroked with `pen` and
    // filled with `brush` at the painter's scale: the picture if it is of
    // this path, pen and brush (at another scale it is stretched until the
    // right one is ready), else the stand-in, asking the scene's pool for
    // the picture.
    void paint(QPainter* painter, GraphicScene* scene, const QPainterPath& path, const QPen& pen,
               const QBrush& brush);

private:
    struct Key
    {
        QPainterPath path;
        QPen pen;
        QBrush brush;
        double scale = 0.0;
        bool sameShape(const Key& other) const
        {
            return path == other.path && pen == other.pen && brush == other.brush;
        }
    };
    // Shared with the pool's job, which may outlive the item.
    struct State
    {
        QMutex mutex;
        Key key; // of `image`
        QImage image;
        QRectF source; // the scene rectangle `image` covers
        Key wanted; // asked of the pool; a null path when nothing is
    };

    static QImage draw(const Key& key, const QRectF& source, double scale);
    static QRectF reach(const QPainterPath& path, const QPen& pen);

    // Made on first use: most items never need one.
    std::shared_ptr<State> m_state;
};

} // namespace whiteboard
