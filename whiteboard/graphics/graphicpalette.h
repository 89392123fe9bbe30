#pragma once

#include <QBrush>
#include <QColor>
#include <QObject>

namespace whiteboard {

// Style of the current tool. One process-wide instance; the scene reads it when
// a user draws a new item, and QML gets the same instance as a singleton.
class GraphicPalette : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QColor strokeColor READ strokeColor WRITE setStrokeColor NOTIFY strokeColorChanged)
    Q_PROPERTY(int strokeWidth READ strokeWidth WRITE setStrokeWidth NOTIFY strokeWidthChanged)
    Q_PROPERTY(Qt::PenStyle strokeStyle READ strokeStyle WRITE setStrokeStyle NOTIFY strokeStyleChanged)
    Q_PROPERTY(Qt::PenCapStyle strokeCapStyle READ strokeCapStyle WRITE setStrokeCapStyle NOTIFY strokeCapStyleChanged)
    Q_PROPERTY(QBrush fillStyle READ fillStyle WRITE setFillStyle NOTIFY fillStyleChanged)
    Q_PROPERTY(double opacity READ opacity WRITE setOpacity NOTIFY opacityChanged)

public:
    explicit GraphicPalette(QObject* parent = nullptr);

    static GraphicPalette* instance();

    QColor strokeColor() const { return m_strokeColor; }
    int strokeWidth() const { return m_strokeWidth; }
    Qt::PenStyle strokeStyle() const { return m_strokeStyle; }
    Qt::PenCapStyle strokeCapStyle() const { return m_strokeCapStyle; }
    QBrush fillStyle() const { return m_fillStyle; }
    double opacity() const { return m_opacity; }

public slots:
    void setStrokeColor(const QColor& color);
    void setStrokeWidth(int width);
    void setStrokeStyle(Qt::PenStyle style);
    void setStrokeCapStyle(Qt::PenCapStyle style);
    void setFillStyle(const QBrush& brush);
    void setFillStyleByColor(const QColor& color);
    void setFillStyleByStringColor(const QString& color);
    void setFillStyleByImage(const QString& filename);
    void setOpacity(double opacity);

signals:
    void strokeColorChanged();
    void strokeWidthChanged();
    void strokeStyleChanged();
    void strokeCapStyleChanged();
    void fillStyleChanged();
    void opacityChanged();

private:
    QColor m_strokeColor = Qt::black;
    int m_strokeWidth = 1;
    Qt::PenStyle m_strokeStyle = Qt::SolidLine;
    Qt::PenCapStyle m_strokeCapStyle = Qt::FlatCap;
    QBrush m_fillStyle = QBrush(Qt::NoBrush);
    double m_opacity = 1.0;
};

} // namespace whiteboard
