#pragma once

#include <QObject>
#include <QPointF>
#include <QString>
#include <QTransform>

// Identity and placement values shared by everything drawn on the board.
// Several properties are only stored and notified: they have no effect on
// painting or hit tests, and must not be wired into them.
class GraphicObject : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qlonglong userId READ userId WRITE setUserId NOTIFY userIdChanged)
    Q_PROPERTY(QString gid READ gid NOTIFY gidChanged)
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(double x READ x WRITE setX NOTIFY xChanged)
    Q_PROPERTY(double y READ y WRITE setY NOTIFY yChanged)
    Q_PROPERTY(int z READ z WRITE setZ NOTIFY zChanged)
    Q_PROPERTY(double opacity READ opacity WRITE setOpacity NOTIFY opacityChanged)
    Q_PROPERTY(double scale READ scale WRITE setScale NOTIFY scaleChanged)
    Q_PROPERTY(double rotation READ rotation WRITE setRotation NOTIFY rotationChanged)
    Q_PROPERTY(QTransform transform READ transform WRITE setTransform NOTIFY transformChanged)
    Q_PROPERTY(QPointF transformOriginPoint READ transformOriginPoint WRITE setTransformOriginPoint NOTIFY transformOriginPointChanged)
    Q_PROPERTY(bool visible READ visible WRITE setVisible NOTIFY visibleChanged)
    Q_PROPERTY(qlonglong timestamp READ timestamp WRITE setTimestamp NOTIFY timestampChanged)

public:
    explicit GraphicObject(QObject* parent = nullptr);
    GraphicObject(const GraphicObject& other);
    ~GraphicObject() override;

    bool enabled() const { return m_enabled; }
    void setEnabled(bool enabled);
    double x() const { return m_x; }
    void setX(double x);
    double y() const { return m_y; }
    void setY(double y);
    int z() const { return m_z; }
    void setZ(int z);
    double opacity() const { return m_opacity; }
    void setOpacity(double opacity);
    double scale() const { return m_scale; }
    void setScale(double scale);
    double rotation() const { return m_rotation; }
    void setRotation(double rotation);
    QPointF transformOriginPoint() const { return m_transformOriginPoint; }
    void setTransformOriginPoint(const QPointF& point);
    bool visible() const { return m_visible; }
    void setVisible(bool visible);
    QTransform transform() const { return m_transform; }
    void setTransform(const QTransform& transform);
    qlonglong timestamp() const { return m_timestamp; }
    void setTimestamp(qlonglong timestamp);
    QString gid() const { return m_gid; }
    // Not a QML setter: only applying a received message changes an identity.
    void setGid(const QString& gid);
    qlonglong userId() const { return m_userId; }
    void setUserId(qlonglong userId);

    // The clock in milliseconds times a random 64-bit number of a generator
    // seeded per process, wrapping in 64 bits, as decimal text; uniqueness is
    // not checked. The scene keeps one item per gid, so a collision would
    // make the newer item take the older one's place on every board.
    static QString makeGid();
    static QString makeGid(qint64 clock);

signals:
    void enabledChanged();
    void xChanged();
    void yChanged();
    void zChanged();
    void opacityChanged();
    void scaleChanged();
    void rotationChanged();
    void transformOriginPointChanged();
    void visibleChanged();
    void transformChanged();
    void timestampChanged();
    void gidChanged();
    void userIdChanged();

private:
    bool m_enabled = true;
    double m_x = 0.0;
    double m_y = 0.0;
    int m_z = 0;
    double m_opacity = 1.0;
    double m_scale = 1.0;
    double m_rotation = 0.0;
    QPointF m_transformOriginPoint;
    bool m_visible = true;
    QTransform m_transform;
    qlonglong m_timestamp = 0;
    QString m_gid;
    qlonglong m_userId = 0;
};
