#pragma once

#include <QBrush>
#include <QImage>
#include <QLine>
#include "annotatedmutex.h"
#include <QList>
#include <QPaintDevice>
#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QPixmap>
#include <QPolygon>
#include <QRect>
#include <QSharedPointer>
#include <QTransform>

#include <functional>
#include <memory>
#include <vector>

namespace whiteboard {

class GraphicItem;
class PaintRecorderEngine;

// What a list of items paints, kept as values: the painter calls of each
// item with the painter state they were made in (paths, pens and images are
// implicitly shared copies). Recorded while the caller holds itemsMutex,
// replayed without it, so that a frame blocks the GUI thread only for the
// recording. Replaying makes the very painter calls the items made, so the
// pixels are those of painting the items directly.
//
// An item whose painting cannot be kept as values (text, clips) is listed
// as is and painted live at its place in the order, under the lock handed
// to replay().
class PaintRecording : public QPaintDevice
{
public:
    PaintRecording();
    ~PaintRecording() override;

    PaintRecording(const PaintRecording&) = delete;
    PaintRecording& operator=(const PaintRecording&) = delete;

    // Caller holds itemsMutex. Records `items` in order, painted onto a
    // painter with `hints` and no transform; replaces what was recorded.
    // Each item's calls keep its boundary grown by `margin` (scene units).
    // Several threads may then replay the recording at once: paths are drawn
    // through copies, and the lazily made parts of the shared pens and
    // brushes are made here, so that painting only reads them.
    void record(const QList<QSharedPointer<GraphicItem>>& items, QPainter::RenderHints hints, double margin = 0.0);
    // Any thread, no lock. Replays onto `painter`, whose transform at entry
    // is the scene's; live items are painted under `liveLock`. Stops early
    // once `stop` answers true. Skips the items that cannot reach the
    // painter's device or clip.
    template <class Lock>
    void replay(QPainter* painter, Lock& liveLock, const std::function<bool()>& stop = {}) const
    {
        replay(painter, [&liveLock](const QSharedPointer<GraphicItem>& item, QPainter* target) {
            SceneLocker locker(&liveLock);
            paintLive(item, target);
        }, stop);
    }
    // Items recorded, and of them those painted live.
    int itemCount() const { return m_itemCount; }
    int liveCount() const { return m_liveCount; }
    void clear();

    QPaintEngine* paintEngine() const override;

protected:
    int metric(PaintDeviceMetric metric) const override;

private:
    friend class PaintRecorderEngine;

    struct State
    {
        QPen pen;
        QBrush brush;
        QPointF brushOrigin;
        QTransform transform;
        QPainter::RenderHints hints;
        QPainter::CompositionMode composition = QPainter::CompositionMode_SourceOver;
        qreal opacity = 1.0;
    };
    struct Command
    {
        enum Kind : quint8 { Path, RectsF, Rects, LinesF, Lines, EllipseF, Ellipse, PointsF, Points, PolygonF, Polygon, Pixmap, Image, Live };
        // What calls other than paths and ellipses carry: kept apart, so
        // that a page of shapes records and frees small commands.
        struct Payload
        {
            QRectF source;
            QList<QRectF> rectsF;
            QList<QRect> rects;
            QList<QLineF> linesF;
            QList<QLine> lines;
            QPolygonF pointsF;
            QPolygon points;
            QImage image;
            QPixmap pixmap;
            Qt::ImageConversionFlags imageFlags;
            QSharedPointer<GraphicItem> item;
        };

        Kind kind = Path;
        quint8 polygonMode = 0;
        int state = -1;
        // Index in m_bounds of the item that made the call.
        int bound = -1;
        QPainterPath path;
        QRectF rect;
        std::unique_ptr<Payload> more;

        Payload& payload()
        {
            if (!more)
                more = std::make_unique<Payload>();
            return *more;
        }
    };

    void replay(QPainter* painter, const std::function<void(const QSharedPointer<GraphicItem>&, QPainter*)>& live,
                const std::function<bool()>& stop) const;
    static void paintLive(const QSharedPointer<GraphicItem>& item, QPainter* painter);
    // Engine side: the state of the calls that follow, and one call.
    void noteState(const State& state);
    Command& add(Command::Kind kind);

    std::unique_ptr<PaintRecorderEngine> m_engine;
    std::vector<State> m_states;
    std::vector<Command> m_commands;
    // Scene units: where each recorded item may paint; null when unknown.
    std::vector<QRectF> m_bounds;
    int m_itemCount = 0;
    int m_liveCount = 0;
};

} // namespace whiteboard
