#include "scene/paintrecording.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicitem.h"

#include <QPaintEngine>

#include <algorithm>

namespace whiteboard {

// Keeps each call as a command of the recording. It claims every feature, so
// that QPainter hands it the calls as the items made them instead of
// emulating them; what it cannot keep marks the item to be painted live.
class PaintRecorderEngine : public QPaintEngine
{
public:
    explicit PaintRecorderEngine(PaintRecording* recording)
        : QPaintEngine(QPaintEngine::AllFeatures)
        , m_recording(recording)
    {
    }

    bool begin(QPaintDevice*) override { return true; }
    bool end() override { return true; }
    Type type() const override { return QPaintEngine::User; }

    void updateState(const QPaintEngineState& state) override
    {
        const QPaintEngine::DirtyFlags flags = state.state();
        if (flags & (DirtyClipPath | DirtyClipRegion | DirtyClipEnabled | DirtyBackground | DirtyBackgroundMode)) {
            // A clip would have to meet the frame's own; a background is
            // painted by text and dashes only. Both are left to live painting.
            if ((flags & (DirtyClipPath | DirtyClipRegion)) || (flags & DirtyBackgroundMode && state.backgroundMode() != Qt::TransparentMode))
                m_unsupported = true;
        }
        if (flags & (DirtyPen | DirtyBrush | DirtyBrushOrigin | DirtyTransform | DirtyHints | DirtyCompositionMode | DirtyOpacity)) {
            PaintRecording::State kept;
            kept.pen = state.pen();
            kept.brush = state.brush();
            kept.brushOrigin = state.brushOrigin();
            kept.transform = state.transform();
            kept.hints = state.renderHints();
            kept.composition = state.compositionMode();
            kept.opacity = state.opacity();
            m_recording->noteState(kept);
        }
    }

    void drawRects(const QRect* rects, int count) override
    {
        m_recording->add(PaintRecording::Command::Rects).payload().rects = QList<QRect>(rects, rects + count);
    }
    void drawRects(const QRectF* rects, int count) override
    {
        m_recording->add(PaintRecording::Command::RectsF).payload().rectsF = QList<QRectF>(rects, rects + count);
    }
    void drawLines(const QLine* lines, int count) override
    {
        m_recording->add(PaintRecording::Command::Lines).payload().lines = QList<QLine>(lines, lines + count);
    }
    void drawLines(const QLineF* lines, int count) override
    {
        m_recording->add(PaintRecording::Command::LinesF).payload().linesF = QList<QLineF>(lines, lines + count);
    }
    void drawEllipse(const QRectF& rect) override { m_recording->add(PaintRecording::Command::EllipseF).rect = rect; }
    void drawEllipse(const QRect& rect) override { m_recording->add(PaintRecording::Command::Ellipse).rect = rect; }
    void drawPath(const QPainterPath& path) override { m_recording->add(PaintRecording::Command::Path).path = path; }
    void drawPoints(const QPointF* points, int count) override
    {
        m_recording->add(PaintRecording::Command::PointsF).payload().pointsF = QPolygonF(QList<QPointF>(points, points + count));
    }
    void drawPoints(const QPoint* points, int count) override
    {
        m_recording->add(PaintRecording::Command::Points).payload().points = QPolygon(QList<QPoint>(points, points + count));
    }
    void drawPolygon(const QPointF* points, int count, PolygonDrawMode mode) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::PolygonF);
        command.payload().pointsF = QPolygonF(QList<QPointF>(points, points + count));
        command.polygonMode = quint8(mode);
    }
    void drawPolygon(const QPoint* points, int count, PolygonDrawMode mode) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::Polygon);
        command.payload().points = QPolygon(QList<QPoint>(points, points + count));
        command.polygonMode = quint8(mode);
    }
    void drawPixmap(const QRectF& rect, const QPixmap& pixmap, const QRectF& source) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::Pixmap);
        command.rect = rect;
        command.payload().pixmap = pixmap;
        command.payload().source = source;
    }
    void drawImage(const QRectF& rect, const QImage& image, const QRectF& source, Qt::ImageConversionFlags flags) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::Image);
        command.rect = rect;
        command.payload().image = image;
        command.payload().source = source;
        command.payload().imageFlags = flags;
    }
    // Glyphs are drawn from the raster engine's own caches: only painting
    // the text again gives the same pixels.
    void drawTextItem(const QPointF&, const QTextItem&) override { m_unsupported = true; }
    void drawTiledPixmap(const QRectF&, const QPixmap&, const QPointF&) override { m_unsupported = true; }

    PaintRecording* m_recording = nullptr;
    bool m_unsupported = false;
};

PaintRecording::PaintRecording()
    : m_engine(std::make_unique<PaintRecorderEngine>(this))
{
}

PaintRecording::~PaintRecording() = default;

QPaintEngine* PaintRecording::paintEngine() const
{
    return m_engine.get();
}

int PaintRecording::metric(PaintDeviceMetric metric) const
{
    switch (metric) {
    case PdmWidth:
    case PdmHeight:
    case PdmWidthMM:
    case PdmHeightMM:
        return 1 << 20;
    case PdmNumColors:
        return INT_MAX;
    case PdmDepth:
        return 32;
    case PdmDpiX:
    case PdmDpiY:
    case PdmPhysicalDpiX:
    case PdmPhysicalDpiY:
        return 96;
    case PdmDevicePixelRatio:
        return 1;
    case PdmDevicePixelRatioScaled:
        return int(devicePixelRatioFScale());
    }
    return 0;
}

void PaintRecording::clear()
{
    // Freed, not kept for the next frame: a whole page holds a command per item.
    std::vector<State>().swap(m_states);
    std::vector<Command>().swap(m_commands);
    std::vector<QRectF>().swap(m_bounds);
    m_itemCount = 0;
    m_liveCount = 0;
}

void PaintRecording::noteState(const State& state)
{
    m_states.push_back(state);
}

PaintRecording::Command& PaintRecording::add(Command::Kind kind)
{
    m_commands.emplace_back();
    Command& command = m_commands.back();
    command.kind = kind;
    command.state = int(m_states.size()) - 1;
    command.bound = int(m_bounds.size());
    return command;
}

void PaintRecording::record(const QList<QSharedPointer<GraphicItem>>& items, QPainter::RenderHints hints, double margin)
{
    clear();
    m_commands.reserve(size_t(items.size()) * 2);
    m_states.reserve(size_t(items.size()) * 2);
    m_bounds.reserve(size_t(items.size()));
    // A line's boundary may have no height: grown by a pixel at least, or it
    // would meet nothing.
    const double grow = std::max(margin, 1.0);
    QPainter painter(this);
    painter.setRenderHints(hints);
    for (const QSharedPointer<GraphicItem>& item : items) {
        const size_t commands = m_commands.size();
        const size_t states = m_states.size();
        m_engine->m_unsupported = false;
        item->paint(&painter, nullptr);
        ++m_itemCount;
        // Taken after painting: a mark sizes itself as it paints.
        const QRectF boundary = item->boundary();
        m_bounds.push_back(boundary.isNull() ? QRectF() : boundary.adjusted(-grow, -grow, grow, grow));
        if (!m_engine->m_unsupported)
            continue;
        m_commands.resize(commands);
        m_states.resize(states);
        Command& live = add(Command::Live);
        live.bound = int(m_bounds.size()) - 1;
        live.payload().item = item;
        ++m_liveCount;
        // The painter's state after the item is not known to the recording
        // any more: the next call notes it afresh.
        painter.end();
        painter.begin(this);
        painter.setRenderHints(hints);
    }
    for (const State& state : m_states) {
        // Both fill a member of the shared data on first call.
        (void)state.pen.dashPattern();
        if (state.brush.style() == Qt::TexturePattern)
            (void)state.brush.textureImage();
    }
}

void PaintRecording::paintLive(const QSharedPointer<GraphicItem>& item, QPainter* painter)
{
    item->paint(painter, nullptr);
}

void PaintRecording::replay(QPainter* painter, const std::function<void(const QSharedPointer<GraphicItem>&, QPainter*)>& live,
                            const std::function<bool()>& stop) const
{
    const QTransform base = painter->transform();
    const QPainter::RenderHints baseHints = painter->renderHints();
    const QPainter::CompositionMode baseComposition = painter->compositionMode();
    const qreal baseOpacity = painter->opacity();
    // Scene units: what the painter can reach. An item outside it would
    // still be stroked before the engine drops it, so it is skipped here.
    const QPaintDevice* device = painter->device();
    QRectF reach;
    if (device) {
        const double ratio = device->devicePixelRatioF();
        reach = base.inverted().mapRect(QRectF(0, 0, device->width() / ratio, device->height() / ratio));
        if (painter->hasClipping())
            reach = reach.intersected(painter->clipBoundingRect());
    }
    const auto within = [&](const Command& command) {
        const QRectF& bounds = m_bounds[size_t(command.bound)];
        return !device || bounds.isNull() || bounds.intersects(reach);
    };
    int applied = -1;
    for (size_t index = 0; index < m_commands.size(); ++index) {
        const Command& command = m_commands[index];
        // Checked now and then: a test costs more than a small item.
        if (stop && (index & 255) == 255 && stop())
            return;
        if (!within(command))
            continue;
        if (command.kind == Command::Live) {
            // As a live item finds the painter in a direct paint: the scene's
            // set-up, whatever the previous item left in pen and brush.
            painter->setTransform(base);
            painter->setRenderHints(QPainter::RenderHints::fromInt(~0), false);
            painter->setRenderHints(baseHints, true);
            painter->setCompositionMode(baseComposition);
            painter->setOpacity(baseOpacity);
            live(command.more->item, painter);
            applied = -1;
            continue;
        }
        if (command.state != applied && command.state >= 0) {
            const State& state = m_states[size_t(command.state)];
            painter->setPen(state.pen);
            painter->setBrush(state.brush);
            painter->setBrushOrigin(state.brushOrigin);
            painter->setTransform(state.transform.isIdentity() ? base : state.transform * base);
            if (painter->renderHints() != state.hints) {
                painter->setRenderHints(QPainter::RenderHints::fromInt(~0), false);
                painter->setRenderHints(state.hints, true);
            }
            painter->setCompositionMode(state.composition);
            painter->setOpacity(state.opacity * baseOpacity);
            applied = command.state;
        }
        switch (command.kind) {
        case Command::Path:
            // Through a copy of its own: a painter keeps the converted form
            // in the data of the path it draws, which another band may be
            // drawing too, and which would keep the form past the frame.
            painter->drawPath(AbstractGraphicShapeItem::paintedPath(command.path));
            break;
        case Command::RectsF:
            painter->drawRects(command.more->rectsF.constData(), int(command.more->rectsF.size()));
            break;
        case Command::Rects:
            painter->drawRects(command.more->rects.constData(), int(command.more->rects.size()));
            break;
        case Command::LinesF:
            painter->drawLines(command.more->linesF.constData(), int(command.more->linesF.size()));
            break;
        case Command::Lines:
            painter->drawLines(command.more->lines.constData(), int(command.more->lines.size()));
            break;
        case Command::EllipseF:
            painter->drawEllipse(command.rect);
            break;
        case Command::Ellipse:
            painter->drawEllipse(command.rect.toRect());
            break;
        case Command::PointsF:
            painter->drawPoints(command.more->pointsF);
            break;
        case Command::Points:
            painter->drawPoints(command.more->points);
            break;
        case Command::PolygonF:
        case Command::Polygon: {
            const auto mode = QPaintEngine::PolygonDrawMode(command.polygonMode);
            // The painter call that hands the engine this mode, for either point type.
            const auto draw = [painter, mode](const auto& points) {
                const int count = int(points.size());
                if (mode == QPaintEngine::PolylineMode)
                    painter->drawPolyline(points.constData(), count);
                else if (mode == QPaintEngine::ConvexMode)
                    painter->drawConvexPolygon(points.constData(), count);
                else
                    painter->drawPolygon(points.constData(), count, mode == QPaintEngine::WindingMode ? Qt::WindingFill : Qt::OddEvenFill);
            };
            if (command.kind == Command::PolygonF)
                draw(command.more->pointsF);
            else
                draw(command.more->points);
            break;
        }
        case Command::Pixmap:
            painter->drawPixmap(command.rect, command.more->pixmap, command.more->source);
            break;
        case Command::Image:
            painter->drawImage(command.rect, command.more->image, command.more->source, command.more->imageFlags);
            break;
        case Command::Live:
            break;
        }
    }
}

} // namespace whiteboard
