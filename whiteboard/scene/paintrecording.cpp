#include "scene/paintrecording.h"

#include "graphics/graphicitem.h"

#include <QPaintEngine>

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
        m_recording->add(PaintRecording::Command::Rects).rects = QList<QRect>(rects, rects + count);
    }
    void drawRects(const QRectF* rects, int count) override
    {
        m_recording->add(PaintRecording::Command::RectsF).rectsF = QList<QRectF>(rects, rects + count);
    }
    void drawLines(const QLine* lines, int count) override
    {
        m_recording->add(PaintRecording::Command::Lines).lines = QList<QLine>(lines, lines + count);
    }
    void drawLines(const QLineF* lines, int count) override
    {
        m_recording->add(PaintRecording::Command::LinesF).linesF = QList<QLineF>(lines, lines + count);
    }
    void drawEllipse(const QRectF& rect) override { m_recording->add(PaintRecording::Command::EllipseF).rect = rect; }
    void drawEllipse(const QRect& rect) override { m_recording->add(PaintRecording::Command::Ellipse).rect = rect; }
    void drawPath(const QPainterPath& path) override { m_recording->add(PaintRecording::Command::Path).path = path; }
    void drawPoints(const QPointF* points, int count) override
    {
        m_recording->add(PaintRecording::Command::PointsF).pointsF = QPolygonF(QList<QPointF>(points, points + count));
    }
    void drawPoints(const QPoint* points, int count) override
    {
        m_recording->add(PaintRecording::Command::Points).points = QPolygon(QList<QPoint>(points, points + count));
    }
    void drawPolygon(const QPointF* points, int count, PolygonDrawMode mode) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::PolygonF);
        command.pointsF = QPolygonF(QList<QPointF>(points, points + count));
        command.polygonMode = quint8(mode);
    }
    void drawPolygon(const QPoint* points, int count, PolygonDrawMode mode) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::Polygon);
        command.points = QPolygon(QList<QPoint>(points, points + count));
        command.polygonMode = quint8(mode);
    }
    void drawPixmap(const QRectF& rect, const QPixmap& pixmap, const QRectF& source) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::Pixmap);
        command.rect = rect;
        command.pixmap = pixmap;
        command.source = source;
    }
    void drawImage(const QRectF& rect, const QImage& image, const QRectF& source, Qt::ImageConversionFlags flags) override
    {
        PaintRecording::Command& command = m_recording->add(PaintRecording::Command::Image);
        command.rect = rect;
        command.image = image;
        command.source = source;
        command.imageFlags = flags;
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
    return command;
}

void PaintRecording::record(const QList<QSharedPointer<GraphicItem>>& items, QPainter::RenderHints hints)
{
    clear();
    m_commands.reserve(size_t(items.size()) * 2);
    m_states.reserve(size_t(items.size()) * 2);
    QPainter painter(this);
    painter.setRenderHints(hints);
    for (const QSharedPointer<GraphicItem>& item : items) {
        const size_t commands = m_commands.size();
        const size_t states = m_states.size();
        m_engine->m_unsupported = false;
        item->paint(&painter, nullptr);
        ++m_itemCount;
        if (!m_engine->m_unsupported)
            continue;
        m_commands.resize(commands);
        m_states.resize(states);
        Command& live = add(Command::Live);
        live.item = item;
        ++m_liveCount;
        // The painter's state after the item is not known to the recording
        // any more: the next call notes it afresh.
        painter.end();
        painter.begin(this);
        painter.setRenderHints(hints);
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
    int applied = -1;
    size_t done = 0;
    for (const Command& command : m_commands) {
        // Checked now and then: a test costs more than a small item.
        if (stop && (++done & 255) == 0 && stop())
            return;
        if (command.kind == Command::Live) {
            // As a live item finds the painter in a direct paint: the scene's
            // set-up, whatever the previous item left in pen and brush.
            painter->setTransform(base);
            painter->setRenderHints(QPainter::RenderHints::fromInt(~0), false);
            painter->setRenderHints(baseHints, true);
            painter->setCompositionMode(baseComposition);
            painter->setOpacity(baseOpacity);
            live(command.item, painter);
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
            painter->drawPath(command.path);
            break;
        case Command::RectsF:
            painter->drawRects(command.rectsF.constData(), int(command.rectsF.size()));
            break;
        case Command::Rects:
            painter->drawRects(command.rects.constData(), int(command.rects.size()));
            break;
        case Command::LinesF:
            painter->drawLines(command.linesF.constData(), int(command.linesF.size()));
            break;
        case Command::Lines:
            painter->drawLines(command.lines.constData(), int(command.lines.size()));
            break;
        case Command::EllipseF:
            painter->drawEllipse(command.rect);
            break;
        case Command::Ellipse:
            painter->drawEllipse(command.rect.toRect());
            break;
        case Command::PointsF:
            painter->drawPoints(command.pointsF);
            break;
        case Command::Points:
            painter->drawPoints(command.points);
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
                draw(command.pointsF);
            else
                draw(command.points);
            break;
        }
        case Command::Pixmap:
            painter->drawPixmap(command.rect, command.pixmap, command.source);
            break;
        case Command::Image:
            painter->drawImage(command.rect, command.image, command.source, command.imageFlags);
            break;
        case Command::Live:
            break;
        }
    }
}

} // namespace whiteboard
