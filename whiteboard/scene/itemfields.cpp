#include "scene/itemfields.h"

#include "graphics/graphicpaths.h"
#include "graphics/graphicarrowline.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "inputlimits.h"

#include <QFontInfo>
#include <QLineF>
#include <QRectF>

#include <optional>

namespace pb = im::whiteboard;

namespace whiteboard {

namespace {

// --- sending side: heap messages for the set_allocated_ accessors; null
// leaves the field absent.

pb::GraphicBaseInfo* makeBaseInfo(const GraphicItem& item)
{
    auto* info = new pb::GraphicBaseInfo;
    info->set_gid(item.gid().toStdString());
    info->set_timestamp(item.timestamp());
    info->set_userid(item.userId());
    info->set_type(item.type());
    return info;
}

pb::FillStyle* makeFillStyle(const AbstractGraphicShapeItem& item)
{
    if (item.brush() == QBrush(Qt::NoBrush))
        return nullptr;
    // Only the plain colour travels: no gradient, texture or alpha.
    auto* style = new pb::FillStyle;
    style->set_color(item.brush().color().name().toStdString());
    return style;
}

pb::StrokeStyle* makeStrokeStyle(const AbstractGraphicShapeItem& item)
{
    const QPen pen = item.pen();
    if (pen == QPen(Qt::NoPen))
        return nullptr;
    auto* style = new pb::StrokeStyle;
    style->set_width(pen.width());
    style->set_color(pen.color().name().toStdString());
    // The wire enumerations carry the toolkit's own numbers.
    style->set_linecap(pb::StrokeStyle_LineCapStyle(pen.capStyle()));
    style->set_linejoin(pb::StrokeStyle_LineJoinStyle(pen.joinStyle()));
    QStringList dashes;
    const QList<qreal> pattern = pen.dashPattern();
    for (qreal value : pattern)
        dashes << QString::number(value, 'g', 6);
    style->set_dashpattern(dashes.join(QLatin1Char(',')).toStdString());
    return style;
}

// Identity, styles and opacity: the fields every styled message
// starts with.
template <class Message>
void writeStyled(const AbstractGraphicShapeItem& item, Message* message)
{
    message->set_allocated_baseinfo(makeBaseInfo(item));
    message->set_allocated_strokestyle(makeStrokeStyle(item));
    message->set_allocated_fillstyle(makeFillStyle(item));
    message->set_opacity(float(item.opacity()));
}

// The frame fields of a Rect, Ellipse or Image message.
template <class Message>
void writeFrame(const GraphicItem& item, Message* message)
{
    const QRectF frame = item.boundary();
    message->set_allocated_leftpos(ItemFields::makePoint(frame.topLeft()));
    message->set_width(float(frame.width()));
    message->set_heigth(float(frame.height()));
}

// The two ends of a Line or Arrow message: the first two elements of the
// outline.
template <class Message>
void writeEnds(const AbstractGraphicShapeItem& item, Message* message)
{
    const QPainterPath outline = item.outlinePath();
    message->set_allocated_startpoint(ItemFields::makePoint(outline.elementAt(0)));
    message->set_allocated_endpoint(ItemFields::makePoint(outline.elementAt(1)));
}

// --- receiving side

void applyBaseInfo(GraphicItem& item, const pb::GraphicBaseInfo& info)
{
    item.setTimestamp(info.timestamp());
    // Read as a C string: a gid stops at its first zero byte.
    item.setGid(QString::fromUtf8(info.gid().c_str()));
    item.setUserId(info.userid());
}

void applyFillStyle(AbstractGraphicShapeItem& item, const pb::FillStyle& style)
{
    item.setBrush(QBrush(QColor(QString::fromStdString(style.color())), Qt::SolidPattern));
}

void applyStrokeStyle(AbstractGraphicShapeItem& item, const pb::StrokeStyle& style)
{
    // The dash pattern is not applied: a received stroke is always solid,
    // whatever pen the item had before (Qt::NoPen for a filled one).
    item.setPen(QPen(QBrush(QColor(QString::fromStdString(style.color())), Qt::SolidPattern), style.width(),
                     Qt::SolidLine, Qt::PenCapStyle(style.linecap()), Qt::PenJoinStyle(style.linejoin())));
}

// The steps every received styled item starts with: identity, styles,
// opacity. The sender sends the styles it paints with, so what is absent
// beside a present one is not painted; a message with neither leaves both
// as they are.
template <class Message>
void applyStyled(AbstractGraphicShapeItem& item, const Message& message)
{
    applyBaseInfo(item, message.baseinfo());
    if (message.has_fillstyle() || message.has_strokestyle()) {
        if (message.has_fillstyle())
            applyFillStyle(item, message.fillstyle());
        else
            item.setBrush(QBrush(Qt::NoBrush));
        if (message.has_strokestyle())
            applyStrokeStyle(item, message.strokestyle());
        else
            item.setPen(QPen(Qt::NoPen));
    }
    if (message.has_opacity())
        item.setOpacity(message.opacity());
}

// The frame of a received message, if it carries any part of one; a missing
// part reads as 0.
template <class Message>
std::optional<QRectF> receivedFrame(const Message& message)
{
    if (!message.has_leftpos() && !message.has_width() && !message.has_heigth())
        return std::nullopt;
    const QPointF topLeft = ItemFields::toPointF(message.leftpos());
    return QRectF(topLeft, topLeft + QPointF(message.width(), message.heigth()));
}

// Applies a received Line or Arrow: styles, and the outline that `outline`
// makes of its ends if it carries either (a missing one reads as (0, 0)).
// Returns whether it did.
template <class Message, class Outline>
bool readEnds(AbstractGraphicShapeItem& item, const Message& message, Outline outline)
{
    applyStyled(item, message);
    if (!message.has_startpoint() && !message.has_endpoint())
        return false;
    const QLineF ends(ItemFields::toPointF(message.startpoint()), ItemFields::toPointF(message.endpoint()));
    item.setOutlinePath(outline(ends));
    return true;
}

// A closed shape (Rect or Ellipse): styles, frame and opacity. Received, its
// outline is the one a drag of the frame without modifiers draws.
template <class Message>
void writeShape(const GraphicFrameItem& item, Message* message)
{
    writeStyled(item, message);
    writeFrame(item, message);
}

template <class Message>
void readShape(GraphicFrameItem& item, const Message& message)
{
    applyStyled(item, message);
    if (const auto frame = receivedFrame(message))
        item.placeFrame(*frame);
}

void writeFont(const QFont& font, pb::FontStyle* style)
{
    style->set_bold(font.weight() >= 501);
    style->set_italic(font.style() != QFont::StyleNormal);
    style->set_overline(font.overline());
    style->set_underline(font.underline());
    style->set_strikeout(font.strikeOut());
    // A font sized in points (a host's field may be) goes out in the pixels
    // it has here: -1 would be refused by every receiver's font.
    style->set_pixelsize(font.pixelSize() > 0 ? font.pixelSize() : QFontInfo(font).pixelSize());
    style->set_stretch(font.stretch());
    style->set_wordspacing(float(font.wordSpacing()));
    const QStringList families = font.families();
    for (const QString& family : families)
        style->add_familys(family.toStdString());
}

// `font` with what a received FontStyle carries.
QFont receivedFont(QFont font, const pb::FontStyle& style)
{
    if (style.has_bold())
        font.setWeight(style.bold() ? QFont::Bold : QFont::Normal);
    if (style.has_italic())
        font.setStyle(style.italic() ? QFont::StyleItalic : QFont::StyleNormal);
    if (style.has_overline())
        font.setOverline(style.overline());
    if (style.has_pixelsize() && style.pixelsize() > 0)
        font.setPixelSize(style.pixelsize());
    if (style.has_stretch())
        font.setStretch(style.stretch());
    if (style.has_strikeout())
        font.setStrikeOut(style.strikeout());
    if (style.has_underline())
        font.setUnderline(style.underline());
    if (style.has_wordspacing())
        font.setWordSpacing(style.wordspacing());
    // Also when empty: the sender's list replaces ours. An empty list
    // names the application's font, as the sender's field does: set as
    // empty, fontconfig would pick any font the machine has (a serif
    // one, with more fonts installed), and the frame would follow it.
    QStringList families;
    for (const std::string& family : style.familys())
        families << QString::fromStdString(family);
    if (families.isEmpty())
        families << QFont().family();
    font.setFamilies(families);
    return font;
}

} // namespace

pb::Point* ItemFields::makePoint(const QPointF& point)
{
    auto* result = new pb::Point;
    result->set_x(float(point.x()));
    result->set_y(float(point.y()));
    return result;
}

QPointF ItemFields::toPointF(const pb::Point& point)
{
    return QPointF(point.x(), point.y());
}

// --- rectangle and ellipse ---------------------------------------------------

void ItemFields::write(const GraphicRectItem& item, pb::Rect* message, bool)
{
    writeShape(item, message);
}

void ItemFields::read(GraphicRectItem& item, const pb::Rect& message)
{
    readShape(item, message);
}

void ItemFields::write(const GraphicEllipseItem& item, pb::Ellipse* message, bool)
{
    writeShape(item, message);
}

void ItemFields::read(GraphicEllipseItem& item, const pb::Ellipse& message)
{
    readShape(item, message);
}

// --- image -------------------------------------------------------------------

void ItemFields::write(const GraphicImage& item, pb::Image* message, bool withPayload)
{
    // No styles: an image paints none.
    message->set_allocated_baseinfo(makeBaseInfo(item));
    writeFrame(item, message);
    message->set_opacity(float(item.opacity()));
    // The pixels travel once, with the add (also the add that brings the
    // item back); moves and resizes carry only the frame, and a receiver
    // keeps the picture it has. Keys are never sent, as each client
    // fingerprints the pixels itself.
    if (!withPayload)
        return;
    const QByteArray picture = item.wirePicture();
    message->set_data(picture.constData(), size_t(picture.size()));
}

void ItemFields::read(GraphicImage& item, const pb::Image& message)
{
    applyBaseInfo(item, message.baseinfo());
    if (message.has_opacity())
        item.setOpacity(message.opacity());
    if (message.has_data())
        item.takePicture(QByteArray::fromStdString(message.data()));
    if (const auto frame = receivedFrame(message))
        item.placeFrame(*frame);
}

// --- line and arrow ------------------------------------------------------------

void ItemFields::write(const GraphicLineItem& item, pb::Line* message, bool)
{
    message->set_allocated_baseinfo(makeBaseInfo(item));
    message->set_allocated_strokestyle(makeStrokeStyle(item));
    message->set_opacity(float(item.opacity()));
    // Only a whole line has ends to send; anything else goes without points
    // and leaves the receiver's geometry as it is.
    if (item.outlinePath().elementCount() == 2)
        writeEnds(item, message);
}

void ItemFields::read(GraphicLineItem& item, const pb::Line& message)
{
    const auto segment = [](const QLineF& ends) { return GraphicPaths::segmentPath(ends.p1(), ends.p2()); };
    if (!readEnds(item, message, segment))
        return;
    item.rebuildHitPath();
    item.setBoundary(item.outlinePath().boundingRect());
}

void ItemFields::write(const GraphicArrowLineItem& item, pb::Arrow* message, bool)
{
    writeStyled(item, message);
    // The shaft only: the receiver builds its own head. Cap size and style
    // do not travel.
    if (item.outlinePath().elementCount() > 1)
        writeEnds(item, message);
}

void ItemFields::read(GraphicArrowLineItem& item, const pb::Arrow& message)
{
    const auto arrow = [&item](const QLineF& ends) { return item.shaftWithHead(ends.p1(), ends.p2()); };
    if (!readEnds(item, message, arrow))
        return;
    // hitPath is deliberately left as it was.
    item.setBoundary(item.outlinePath().boundingRect());
}

// --- polyline and pen stroke ----------------------------------------------------

void ItemFields::write(const GraphicLineSegmentItem& item, pb::Polyline* message, bool)
{
    message->set_allocated_baseinfo(makeBaseInfo(item));
    message->set_allocated_strokestyle(makeStrokeStyle(item));
    message->set_opacity(float(item.opacity()));
    const QPainterPath outline = item.outlinePath();
    for (int i = 0; i < outline.elementCount(); ++i)
        message->mutable_points()->AddAllocated(makePoint(outline.elementAt(i)));
}

void ItemFields::read(GraphicLineSegmentItem& item, const pb::Polyline& message)
{
    // A polyline without points has no first vertex to start from.
    if (message.points_size() == 0)
        return;
    applyStyled(item, message);
    // Cleared rather than made anew: the outline keeps its fill rule.
    QPainterPath outline = item.outlinePath();
    outline.clear();
    outline.moveTo(toPointF(message.points(0)));
    for (int i = 1; i < message.points_size(); ++i)
        outline.lineTo(toPointF(message.points(i)));
    item.setOutlinePath(outline);
    item.setBoundary(outline.boundingRect());
    item.rebuildHitPath();
}

void ItemFields::write(const GraphicPenItem& item, pb::Path* message, bool)
{
    writeStyled(item, message);
    // A receiver reads a present path as at least one point.
    if (item.outlinePath().elementCount() >= 1)
        message->set_path(item.pathString().toStdString());
}

void ItemFields::read(GraphicPenItem& item, const pb::Path& message)
{
    applyStyled(item, message);
    if (!message.has_path())
        return;
    QPainterPath outline = GraphicPenItem::parsePathString(QString::fromStdString(message.path()));
    // Where the text is read, its numbers are bounded: the receiving guard
    // has only cut the points.
    if (InputLimits::clampPath(outline))
        qCWarning(lcWhiteboardInput, "clamped pen stroke %s: coordinates", qPrintable(item.gid()));
    item.setOutlinePath(outline);
    item.setBoundary(outline.boundingRect());
    item.rebuildHitPath();
}

// --- text ------------------------------------------------------------------------

void ItemFields::write(const GraphicTextItem& item, pb::Text* message, bool)
{
    writeStyled(item, message);
    message->set_allocated_position(makePoint(item.boundary().topLeft()));

    writeFont(item.font(), message->mutable_fontstyle());

    message->set_text(item.text().toStdString());
    // Passed through untouched; nothing here interprets it.
    message->set_alignment(pb::Text_Alignment(item.alignment()));
}

void ItemFields::read(GraphicTextItem& item, const pb::Text& message)
{
    applyStyled(item, message);
    if (message.has_alignment())
        item.setAlignment(message.alignment());
    if (message.has_fontstyle())
        item.setFont(receivedFont(item.font(), message.fontstyle()));
    // The text arrives without a change signal; the frame is laid out from
    // it, one line high whatever it holds.
    if (message.has_text())
        item.m_text = QString::fromStdString(message.text());
    item.layoutAt(toPointF(message.position()));
}

} // namespace whiteboard
