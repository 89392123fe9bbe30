#include "graphics/graphicmarkitem.h"

#include "scene/annotatedmutex.h"
#include "scene/graphicscene.h"

#include <QFontMetricsF>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

namespace whiteboard {

namespace {

const QSizeF kArrowSize(16.0, 20.0);
constexpr double kLabelHeight = 18.0;
constexpr double kLabelPadding = 12.0;
constexpr double kMaxTextWidth = 120.0;
constexpr int kLabelPixelSize = 16;

// Draws the pointers of the other participants: made when the library loads,
// loaded from ":/arrow.svg" by the first mark (GUI thread), kept to process
// exit. Every mark of every scene paints with it on its render thread.
QSvgRenderer arrowRendererInstance;
// Held for each use of the renderer. Drawing its document is not read-only:
// each style node saves the painter's pen and brush into itself and
// puts them back, so two render threads (two scenes) drawing at once assign
// the same QPen and QBrush objects together, dropping or doubling their
// references; the freed blocks are then written again and the heap
// corruption shows when a render thread ends. A leaf lock: nothing is taken
// under it.
SceneMutex arrowRendererMutex;

QSvgRenderer& arrowRenderer()
{
    return arrowRendererInstance;
}

} // namespace

GraphicMarkItem::GraphicMarkItem(const QString& text, const QFont& font, GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
    , m_text(text)
    , m_font(font)
{
    m_font.setPixelSize(kLabelPixelSize);
    setType(Mark);
    setCursorShape(Qt::PointingHandCursor);
    updateMarkColor();
    connect(this, &GraphicObject::userIdChanged, this, &GraphicMarkItem::updateMarkColor);
    SceneLocker locker(&arrowRendererMutex);
    QSvgRenderer& renderer = arrowRenderer();
    if (!renderer.isValid())
        renderer.load(QStringLiteral(":/arrow.svg"));
}

// Marks live on the mark layer, which selection never reaches, so no paste
// copies one today.
GraphicMarkItem::GraphicMarkItem(const GraphicMarkItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_pressed(other.m_pressed)
    , m_text(other.m_text)
    , m_font(other.m_font)
{
    updateMarkColor();
    connect(this, &GraphicObject::userIdChanged, this, &GraphicMarkItem::updateMarkColor);
}

// GUI thread: the scene gives a mark its user before it files it in a layer.
void GraphicMarkItem::updateMarkColor()
{
    m_markColor = colorForUser(int(userId()));
}

void GraphicMarkItem::setText(const QString& text)
{
    if (m_text == text)
        return;
    m_text = text;
    emit textChanged();
}

void GraphicMarkItem::setFont(const QFont& font)
{
    if (m_font == font)
        return;
    m_font = font;
    emit fontChanged();
}

QColor GraphicMarkItem::colorForUser(int userId)
{
    // Made once; a negative index still inserts an entry, so the look-ups
    // of several scenes take turns.
    static QHash<int, QColor> colors {
        { 0, QColor("#ED4E4E") }, { 1, QColor("#6C9DD9") }, { 2, QColor("#EEC74E") }, { 3, QColor("#8576F2") },
        { 4, QColor("#7BCD59") }, { 5, QColor("#BE6CD9") }, { 6, QColor("#63C9BF") }, { 7, QColor("#EE6293") },
    };
    static SceneMutex mutex;
    const int index = (userId / 2 + userId % 2) % 8;
    SceneLocker locker(&mutex);
    return colors[index];
}

GraphicItem* GraphicMarkItem::copy()
{
    return new GraphicMarkItem(*this);
}

bool GraphicMarkItem::collidesWithPoint(const QPointF&, Qt::ItemSelectionMode) const
{
    return false;
}

void GraphicMarkItem::paint(QPainter* painter, const QRectF*)
{
    GraphicScene* scene = this->scene();
    if (!visible() || !scene)
        return;
    painter->save();
    const QRectF frame = boundary();

    // Undo the zoom: what follows is drawn in screen pixels at the pointer.
    const double s = scene->scale();
    const QPointF v = scene->mapFromScene(frame.topLeft());
    painter->scale(1.0 / s, 1.0 / s);
    const QPointF tip = scene->mapToScene(v, s);

    const QRectF arrowRect(tip, kArrowSize);
    {
        SceneLocker locker(&arrowRendererMutex);
        arrowRenderer().render(painter, arrowRect);
    }

    const QFontMetricsF metrics(m_font);
    const QString shown = label(metrics);
    const QRectF labelRect(arrowRect.bottomRight() - QPointF(2.0, 2.0), labelSize(metrics, shown));

    painter->setFont(m_font);
    painter->save();
    painter->setBrush(QBrush(m_markColor, Qt::SolidPattern));
    painter->setPen(Qt::NoPen);
    painter->drawRoundedRect(labelRect, 4.0, 4.0, Qt::AbsoluteSize);
    painter->restore();
    painter->setPen(QColor(Qt::white));
    painter->drawText(labelRect, Qt::AlignHCenter | Qt::AlignVCenter, shown);
    painter->restore();
}

QString GraphicMarkItem::label(const QFontMetricsF& metrics) const
{
    return metrics.elidedText(m_text, Qt::ElideRight, kMaxTextWidth);
}

QSizeF GraphicMarkItem::labelSize(const QFontMetricsF& metrics, const QString& shown)
{
    return QSizeF(metrics.horizontalAdvance(shown) + kLabelPadding, kLabelHeight);
}

QSizeF GraphicMarkItem::extent() const
{
    const QFontMetricsF metrics(m_font);
    const QSizeF label = labelSize(metrics, this->label(metrics));
    return QSizeF(kArrowSize.width() - 2.0 + label.width(), kArrowSize.height() - 2.0 + label.height());
}

void GraphicMarkItem::place(const QPointF& position, double scale)
{
    setBoundary(QRectF(position, extent() / scale));
}

QRectF GraphicMarkItem::paintedArea(double scale) const
{
    const QRectF frame = boundary();
    // Antialiased edges reach a pixel further.
    const double margin = 2.0 / scale;
    return frame.united(QRectF(frame.topLeft(), extent() / scale)).adjusted(-margin, -margin, margin, margin);
}

} // namespace whiteboard
