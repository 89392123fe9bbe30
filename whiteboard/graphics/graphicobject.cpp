#include "graphics/graphicobject.h"

#include <QDateTime>
#include <QRandomGenerator>

GraphicObject::GraphicObject(QObject* parent)
    : QObject(parent)
    , m_gid(makeGid())
{
    // No ownership is set here: for an object that QML creates, the engine
    // installs its own QQmlData after the constructor, and one made here
    // would leak. The scene marks the items it shares (makeShared).
}

GraphicObject::GraphicObject(const GraphicObject& other)
    : QObject(other.parent())
    , m_enabled(other.m_enabled)
    , m_x(other.m_x)
    , m_y(other.m_y)
    , m_z(other.m_z)
    , m_opacity(other.m_opacity)
    , m_scale(other.m_scale)
    , m_rotation(other.m_rotation)
    , m_transformOriginPoint(other.m_transformOriginPoint)
    , m_visible(other.m_visible)
    , m_transform(other.m_transform)
    , m_timestamp(QDateTime::currentMSecsSinceEpoch())
    , m_gid(makeGid())
{
}

GraphicObject::~GraphicObject() = default;

QString GraphicObject::makeGid()
{
    return makeGid(QDateTime::currentMSecsSinceEpoch());
}

QString GraphicObject::makeGid(qint64 clock)
{
    // The global generator is seeded by the system once per process (and is
    // safe from any thread): two processes, or two devices, making an item in
    // one millisecond draw different numbers. Two gids of one millisecond
    // collide with a chance of 2^-64 times 2 to the clock's trailing zero bits.
    quint64 random = 0;
    while (random == 0)
        random = QRandomGenerator::global()->generate64();
    return QString::number(qint64(quint64(clock) * random), 10);
}

void GraphicObject::setEnabled(bool enabled)
{
    if (m_enabled == enabled)
        return;
    m_enabled = enabled;
    emit enabledChanged();
}

void GraphicObject::setX(double x)
{
    if (qFuzzyCompare(m_x, x))
        return;
    m_x = x;
    emit xChanged();
}

void GraphicObject::setY(double y)
{
    if (qFuzzyCompare(m_y, y))
        return;
    m_y = y;
    emit yChanged();
}

void GraphicObject::setZ(int z)
{
    if (m_z == z)
        return;
    m_z = z;
    emit zChanged();
}

void GraphicObject::setOpacity(double opacity)
{
    if (qFuzzyCompare(m_opacity, opacity))
        return;
    m_opacity = opacity;
    emit opacityChanged();
}

void GraphicObject::setScale(double scale)
{
    if (qFuzzyCompare(m_scale, scale))
        return;
    m_scale = scale;
    emit scaleChanged();
}

void GraphicObject::setRotation(double rotation)
{
    if (qFuzzyCompare(m_rotation, rotation))
        return;
    m_rotation = rotation;
    emit rotationChanged();
}

void GraphicObject::setTransformOriginPoint(const QPointF& point)
{
    if (m_transformOriginPoint == point)
        return;
    m_transformOriginPoint = point;
    emit transformOriginPointChanged();
}

void GraphicObject::setVisible(bool visible)
{
    if (m_visible == visible)
        return;
    m_visible = visible;
    emit visibleChanged();
}

void GraphicObject::setTransform(const QTransform& transform)
{
    if (m_transform == transform)
        return;
    m_transform = transform;
    emit transformChanged();
}

void GraphicObject::setTimestamp(qlonglong timestamp)
{
    if (m_timestamp == timestamp)
        return;
    m_timestamp = timestamp;
    emit timestampChanged();
}

void GraphicObject::setGid(const QString& gid)
{
    if (m_gid == gid)
        return;
    m_gid = gid;
    emit gidChanged();
}

void GraphicObject::setUserId(qlonglong userId)
{
    if (m_userId == userId)
        return;
    m_userId = userId;
    emit userIdChanged();
}
