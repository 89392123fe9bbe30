#include "scene/sceneviewport.h"

#include <QPainter>
#include <QTransform>

#include <algorithm>
#include <cmath>

namespace whiteboard {

namespace {

QPainterPath mapPathThrough(const QPainterPath& path, const QRectF& target)
{
    const QRectF b = path.boundingRect();
    QTransform transform;
    transform.translate(target.x() - b.x(), target.y() - b.y());
    transform.scale(b.width() != 0 ? target.width() / b.width() : 1.0, b.height() != 0 ? target.height() / b.height() : 1.0);
    return transform.map(path);
}

} // namespace

QPointF SceneViewport::mapToScene(const QPointF& p, double f) const
{
    if (!hasViewSize())
        return QPointF();
    const QSizeF vs = viewBounds.size();
    double x = viewport.x(), y = viewport.y(), w = viewport.width(), h = viewport.height();
    if (!qFuzzyCompare(f, 1.0)) {
        x *= f;
        y *= f;
        w *= f;
        h *= f;
    }
    return QPointF((p.x() / vs.width() * w + x) * sceneSize.width(), (p.y() / vs.height() * h + y) * sceneSize.height());
}

QPointF SceneViewport::mapFromScene(const QPointF& p) const
{
    if (!hasSceneSize())
        return QPointF();
    const QSizeF vs = viewBounds.size();
    return QPointF((p.x() / sceneSize.width() - viewport.x()) / viewport.width() * vs.width(),
                   (p.y() / sceneSize.height() - viewport.y()) / viewport.height() * vs.height());
}

QRectF SceneViewport::mapRectToScene(const QRectF& r) const
{
    if (!hasViewSize())
        return QRectF(0, 0, 0, 0);
    return QRectF(mapToScene(r.topLeft()), mapToScene(r.bottomRight()));
}

QRectF SceneViewport::mapRectFromScene(const QRectF& r) const
{
    if (!hasSceneSize())
        return QRectF(0, 0, 0, 0);
    return QRectF(mapFromScene(r.topLeft()), mapFromScene(r.bottomRight()));
}

QPainterPath SceneViewport::mapPathToScene(const QPainterPath& path) const
{
    if (!hasViewSize())
        return QPainterPath();
    return mapPathThrough(path, mapRectToScene(path.boundingRect()));
}

QPainterPath SceneViewport::mapPathFromScene(const QPainterPath& path) const
{
    if (!hasSceneSize())
        return QPainterPath();
    return mapPathThrough(path, mapRectFromScene(path.boundingRect()));
}

QRectF SceneViewport::viewportRect() const
{
    const double W = sceneSize.width();
    const double H = sceneSize.height();
    return QRectF(QPointF(viewport.x() * W, viewport.y() * H),
                  QPointF((viewport.x() + viewport.width()) * W, (viewport.y() + viewport.height()) * H));
}

QTransform SceneViewport::sceneToView() const
{
    QTransform transform;
    transform.scale(scale, scale);
    transform.translate(-viewport.x() * sceneSize.width(), -viewport.y() * sceneSize.height());
    transform.rotate(rotation);
    const auto snap = [](double offset) { return std::round(offset * 65536.0) / 65536.0; };
    transform.setMatrix(transform.m11(), transform.m12(), transform.m13(), transform.m21(), transform.m22(), transform.m23(),
                        snap(transform.dx()), snap(transform.dy()), transform.m33());
    return transform;
}

void SceneViewport::applyTo(QPainter* painter) const
{
    painter->setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    painter->setTransform(sceneToView(), true);
}

QRectF SceneViewport::centred() const
{
    const double w = viewBounds.width() / sceneSize.width() / scale;
    const double h = viewBounds.height() / sceneSize.height() / scale;
    return QRectF(0.5 - w / 2, 0.5 - h / 2, w, h);
}

QRectF SceneViewport::zoomedAround(const QPointF& center) const
{
    const QPointF c0 = mapRectToScene(viewBounds).center();
    const QPointF p = mapToScene(center);
    const QTransform viewToScene = QTransform::fromScale(1.0 / scale, 1.0 / scale);
    QRectF next = viewToScene.mapRect(viewBounds);
    const QPointF q = viewToScene.map(center);
    const QPointF c1 = next.center();
    next.moveCenter(c0 - ((q - c1) - (p - c0)));
    return QRectF(next.x() / sceneSize.width(), next.y() / sceneSize.height(), next.width() / sceneSize.width(),
                  next.height() / sceneSize.height());
}

QRectF SceneViewport::movedBy(const QPointF& d) const
{
    QRectF next = viewport;
    next.moveTopLeft(QPointF(viewport.x() + d.x() / viewBounds.width() * viewport.width(),
                             viewport.y() + d.y() / viewBounds.height() * viewport.height()));
    return next;
}

QRectF SceneViewport::pageOnScreen(const QRectF& r) const
{
    return QRectF(-r.x() / r.width() * viewBounds.width(), -r.y() / r.height() * viewBounds.height(),
                  roundPixel(sceneSize.width() * scale), roundPixel(sceneSize.height() * scale));
}

bool SceneViewport::keepsPageInSight(const QRectF& r) const
{
    const bool insidePage = r.left() >= 0.0 && r.top() >= 0.0 && r.right() <= 1.0 && r.bottom() <= 1.0;
    if (insidePage)
        return true;
    // Measured with the new viewport: a zoom changes its size in the same step.
    const QRectF onScreen = pageOnScreen(r);
    const QRectF visible = onScreen.intersected(viewBounds);
    return visible.width() >= std::min(100.0, onScreen.width()) && visible.height() >= std::min(100.0, onScreen.height());
}

QRegion SceneViewport::pageRegion() const
{
    const QPointF tl = viewport.topLeft();
    const QPointF br = viewport.bottomRight();
    // Inside the page the view is all page; else the page is smaller than
    // the view, or shifted.
    const bool insidePage = tl.x() >= 0.0 && tl.y() >= 0.0 && br.x() <= 1.0 && br.y() <= 1.0;
    return QRegion((insidePage ? viewBounds : pageOnScreen(viewport)).toRect());
}

} // namespace whiteboard
