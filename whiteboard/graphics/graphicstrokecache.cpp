#include "graphics/graphicstrokecache.h"

#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicimagecodec.h"
#include "scene/graphicscene.h"

#include <QLineF>
#include <QMutexLocker>
#include <QPainter>
#include <QVarLengthArray>

#include <cmath>

namespace whiteboard {

namespace {

// The scale a picture is drawn at: the painter's, rounded up to a quarter
// octave, so that a small change of zoom keeps the picture.
double pictureScale(double scale)
{
    return std::exp2(std::ceil(std::log2(std::max(scale, 1e-3)) * 4.0) / 4.0);
}

} // namespace

bool GraphicStrokeCache::wanted(const QPainterPath& path)
{
    const int count = path.elementCount();
    if (count > kMaxDirectElements)
        return true;
    double squares = 0.0;
    for (int i = 1; i < count; ++i) {
        const QPointF step = QPointF(path.elementAt(i)) - QPointF(path.elementAt(i - 1));
        squares += QPointF::dotProduct(step, step);
    }
    return squares > kMaxDirectSquaredLength;
}

QRectF GraphicStrokeCache::reach(const QPainterPath& path, const QPen& pen)
{
    // A miter join reaches out to its limit times half the width.
    const double margin = pen.style() == Qt::NoPen ? 1.0 : pen.widthF() * std::max(1.0, pen.miterLimit()) + 2.0;
    return path.boundingRect().adjusted(-margin, -margin, margin, margin);
}

QImage GraphicStrokeCache::draw(const Key& key, const QRectF& source, double scale)
{
    const double area = source.width() * source.height() * scale * scale;
    if (area > double(kMaxPixels))
        scale *= std::sqrt(double(kMaxPixels) / area);
    const QSize size(std::max(1, int(std::ceil(source.width() * scale))), std::max(1, int(std::ceil(source.height() * scale))));
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(scale, scale);
    painter.translate(-source.topLeft());
    // Opaque here, the opacity applied to the whole picture: the pieces
    // overlap where they meet.
    QBrush brush = key.brush;
    QColor colour = brush.color();
    colour.setAlpha(255);
    brush.setColor(colour);
    QPen pen = key.pen;
    colour = pen.color();
    colour.setAlpha(255);
    pen.setColor(colour);
    if (brush.style() != Qt::NoBrush)
        painter.fillPath(AbstractGraphicShapeItem::paintedPath(key.path), brush);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);

    // Each piece on its own, its ends capped as the pen caps: the engine
    // draws a lone line fast, and a round cap stands in for a round join.
    const QPainterPath& path = key.path;
    for (int i = 1; i < path.elementCount(); ++i) {
        const QPainterPath::Element e = path.elementAt(i);
        if (e.isLineTo()) {
            painter.drawLine(QPointF(path.elementAt(i - 1)), QPointF(e));
        } else if (e.isCurveTo() && i + 2 < path.elementCount()) {
            QPainterPath curve(path.elementAt(i - 1));
            curve.cubicTo(e, path.elementAt(i + 1), path.elementAt(i + 2));
            painter.drawPath(curve);
            i += 2;
        }
    }
    return image;
}

void GraphicStrokeCache::paint(QPainter* painter, GraphicScene* scene, const QPainterPath& path, const QPen& pen,
                               const QBrush& brush)
{
    const double scale = pictureScale(std::sqrt(std::abs(painter->deviceTransform().determinant())));
    const Key key { path, pen, brush, scale };
    if (!m_state)
        m_state = std::make_shared<State>();
    QImage image;
    QRectF source;
    bool ask = false;
    {
        QMutexLocker locker(&m_state->mutex);
        if (!m_state->image.isNull() && m_state->key.sameShape(key)) {
            image = m_state->image;
            source = m_state->source;
        }
        // A finer picture serves a smaller scale, as for the thumbnails.
        const bool fine = !image.isNull() && m_state->key.scale >= scale;
        const bool asked = m_state->wanted.sameShape(key) && m_state->wanted.scale >= scale;
        if (!fine && !asked && scene) {
            m_state->wanted = key;
            ask = true;
        }
    }
    if (ask) {
        const QRectF reached = reach(path, pen);
        const std::weak_ptr<State> weak = m_state;
        // The item may be gone when the job runs or ends: it holds only the state.
        scene->imageCodec()->run([weak, key, reached] {
            auto wantedStill = [&key](const std::shared_ptr<State>& state) {
                return state && state->wanted.sameShape(key) && state->wanted.scale == key.scale;
            };
            {
                const std::shared_ptr<State> state = weak.lock();
                QMutexLocker locker(state ? &state->mutex : nullptr);
                if (!wantedStill(state))
                    return;
            }
            const QImage picture = draw(key, reached, key.scale);
            const std::shared_ptr<State> state = weak.lock();
            QMutexLocker locker(state ? &state->mutex : nullptr);
            if (!wantedStill(state))
                return;
            state->key = key;
            state->image = picture;
            state->source = reached;
            state->wanted = Key();
        }, reached.toAlignedRect());
    }

    const double alpha = pen.style() != Qt::NoPen ? pen.color().alphaF() : brush.color().alphaF();
    if (!image.isNull()) {
        painter->save();
        painter->setOpacity(painter->opacity() * alpha);
        painter->drawImage(source, image);
        painter->restore();
        return;
    }
    // The stand-in: every so many points, joined by lines.
    const int step = std::max(1, path.elementCount() / kStandInPieces);
    QVarLengthArray<QLineF, kStandInPieces + 2> lines;
    QPointF from = path.elementAt(0);
    for (int i = step; i < path.elementCount(); i += step) {
        const QPointF to = path.elementAt(i);
        lines.append(QLineF(from, to));
        from = to;
    }
    lines.append(QLineF(from, path.elementAt(path.elementCount() - 1)));
    // Plain lines, which the engine draws fast.
    QPen plain = pen;
    plain.setStyle(Qt::SolidLine);
    plain.setCapStyle(Qt::FlatCap);
    painter->save();
    painter->setPen(plain);
    painter->drawLines(lines.constData(), int(lines.size()));
    painter->restore();
}

} // namespace whiteboard
