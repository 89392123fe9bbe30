#include "scene/inboundguard.h"

#include "inputlimits.h"

#include "proto/whiteboard.pb.h"

#include <QBuffer>
#include <QByteArray>
#include <QDataStream>
#include <QImageReader>
#include <QStringList>

#include <algorithm>

namespace pb = im::whiteboard;

namespace whiteboard {

namespace {

// Collects what is wrong with one entry and tells it in one line.
class Check
{
public:
    Check(const char* kind, const std::string& gid)
        : m_kind(kind)
        , m_gid(QByteArray::fromStdString(gid))
    {
    }

    void refuse(const char* reason)
    {
        if (!m_refused)
            m_refused = reason;
    }
    void clamp(const char* what)
    {
        if (!m_clamped.contains(QLatin1String(what)))
            m_clamped << QLatin1String(what);
    }
    bool refused() const { return m_refused != nullptr; }

    bool verdict() const
    {
        if (m_refused) {
            qCWarning(lcWhiteboardInput, "refused %s %s: %s", m_kind, m_gid.constData(), m_refused);
            return false;
        }
        if (!m_clamped.isEmpty())
            qCWarning(lcWhiteboardInput, "clamped %s %s: %s", m_kind, m_gid.constData(),
                      qPrintable(m_clamped.join(QLatin1String(", "))));
        return true;
    }

private:
    const char* m_kind;
    QByteArray m_gid;
    const char* m_refused = nullptr;
    QStringList m_clamped;
};

constexpr const char* kNotFinite = "coordinates not finite";

void boundPoint(pb::Point* point, Check& check)
{
    QPointF p(point->x(), point->y());
    if (!InputLimits::isFinite(p)) {
        check.refuse(kNotFinite);
        return;
    }
    if (InputLimits::clampPoint(p)) {
        point->set_x(float(p.x()));
        point->set_y(float(p.y()));
        check.clamp("coordinates");
    }
}

template <class Message>
void boundOpacity(Message& message, Check& check)
{
    if (!message.has_opacity())
        return;
    const float opacity = message.opacity();
    if (!qIsFinite(opacity)) {
        message.clear_opacity();
        check.clamp("opacity");
    } else if (opacity < 0.0f || opacity > 1.0f) {
        message.set_opacity(std::clamp(opacity, 0.0f, 1.0f));
        check.clamp("opacity");
    }
}

// Widths, caps and joins reach QPen as they stand: a cap or join the toolkit
// does not know would be an enumeration value out of its range.
template <class Message>
void boundStroke(Message& message, Check& check)
{
    if (!message.has_strokestyle())
        return;
    pb::StrokeStyle* style = message.mutable_strokestyle();
    if (style->width() < 0 || style->width() > InputLimits::kMaxStrokeWidth) {
        style->set_width(std::clamp(style->width(), 0, InputLimits::kMaxStrokeWidth));
        check.clamp("stroke width");
    }
    const int cap = style->linecap();
    if (cap != Qt::FlatCap && cap != Qt::SquareCap && cap != Qt::RoundCap) {
        style->set_linecap(pb::StrokeStyle_LineCapStyle(Qt::SquareCap));
        check.clamp("line cap");
    }
    const int join = style->linejoin();
    if (join != Qt::MiterJoin && join != Qt::BevelJoin && join != Qt::RoundJoin && join != Qt::SvgMiterJoin) {
        style->set_linejoin(pb::StrokeStyle_LineJoinStyle(Qt::BevelJoin));
        check.clamp("line join");
    }
}

// Rect, Ellipse and Image: a frame from `leftpos`, `width` and `heigth`.
template <class Message>
void boundFrame(Message& message, Check& check)
{
    if (!message.has_leftpos() && !message.has_width() && !message.has_heigth())
        return;
    const double x = message.leftpos().x();
    const double y = message.leftpos().y();
    const double w = message.width();
    const double h = message.heigth();
    if (!qIsFinite(x) || !qIsFinite(y) || !qIsFinite(w) || !qIsFinite(h)) {
        check.refuse(kNotFinite);
        return;
    }
    QRectF frame(x, y, w, h);
    if (!InputLimits::clampRect(frame))
        return;
    message.mutable_leftpos()->set_x(float(frame.x()));
    message.mutable_leftpos()->set_y(float(frame.y()));
    message.set_width(float(frame.width()));
    message.set_heigth(float(frame.height()));
    check.clamp("frame");
}

template <class Message>
bool admitFrame(Message& message, const char* kind)
{
    Check check(kind, message.baseinfo().gid());
    boundFrame(message, check);
    boundStroke(message, check);
    boundOpacity(message, check);
    return check.verdict();
}

template <class Message>
bool admitEnds(Message& message, const char* kind)
{
    Check check(kind, message.baseinfo().gid());
    if (message.has_startpoint())
        boundPoint(message.mutable_startpoint(), check);
    if (message.has_endpoint())
        boundPoint(message.mutable_endpoint(), check);
    boundStroke(message, check);
    boundOpacity(message, check);
    return check.verdict();
}

// The size a picture would decode to, read from its header only: the
// stream's null marker, then the image file.
QSize pictureSize(const std::string& data)
{
    QByteArray bytes = QByteArray::fromRawData(data.data(), qsizetype(data.size()));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QDataStream stream(&buffer);
    qint32 marker = 0;
    stream >> marker;
    if (marker == 0)
        return QSize();
    return QImageReader(&buffer).size();
}

// Cuts a received text to kMaxTextLength; returns whether it was longer.
bool cutText(std::string* text)
{
    // A UTF-8 text has at least as many bytes as UTF-16 units.
    if (text->size() <= size_t(InputLimits::kMaxTextLength))
        return false;
    QString decoded = QString::fromStdString(*text);
    if (!InputLimits::cutText(decoded))
        return false;
    *text = decoded.toStdString();
    return true;
}

} // namespace

bool InboundGuard::admitEnvelope(const std::string& data)
{
    if (data.size() <= size_t(InputLimits::kMaxEnvelopeBytes))
        return true;
    qCWarning(lcWhiteboardInput, "refused envelope of %zu bytes: more than %lld", data.size(),
              qlonglong(InputLimits::kMaxEnvelopeBytes));
    return false;
}

bool InboundGuard::admit(pb::Rect& message)
{
    return admitFrame(message, "rectangle");
}

bool InboundGuard::admit(pb::Ellipse& message)
{
    return admitFrame(message, "ellipse");
}

bool InboundGuard::admit(pb::Image& message)
{
    Check check("picture", message.baseinfo().gid());
    boundFrame(message, check);
    boundOpacity(message, check);
    if (message.has_data() && !check.refused()) {
        const QSize size = pictureSize(message.data());
        // Pictures are scaled down where they are placed; a larger one comes
        // from a peer that did not, and its pixels stay out.
        if (std::max(size.width(), size.height()) > InputLimits::kMaxPictureSide) {
            message.clear_data();
            check.clamp("picture larger than its limit dropped");
        }
    }
    return check.verdict();
}

bool InboundGuard::admit(pb::Line& message)
{
    return admitEnds(message, "line");
}

bool InboundGuard::admit(pb::Arrow& message)
{
    return admitEnds(message, "arrow");
}

bool InboundGuard::admit(pb::Polyline& message)
{
    Check check("polyline", message.baseinfo().gid());
    if (message.points_size() == 0)
        check.refuse("no points");
    if (message.points_size() > InputLimits::kMaxPoints) {
        message.mutable_points()->DeleteSubrange(InputLimits::kMaxPoints,
                                                 message.points_size() - InputLimits::kMaxPoints);
        check.clamp("points");
    }
    for (int i = 0; i < message.points_size() && !check.refused(); ++i)
        boundPoint(message.mutable_points(i), check);
    boundStroke(message, check);
    boundOpacity(message, check);
    return check.verdict();
}

bool InboundGuard::admit(pb::Path& message)
{
    Check check("pen stroke", message.baseinfo().gid());
    if (message.has_path()) {
        std::string* text = message.mutable_path();
        // Cut after the last point allowed before anything is parsed.
        size_t at = 0;
        for (int points = 1; (at = text->find(" L ", at)) != std::string::npos; ++points, at += 3) {
            if (points == InputLimits::kMaxPoints) {
                text->resize(at);
                check.clamp("points");
                break;
            }
        }
        // The coordinates are text: the item bounds them as it parses them,
        // so that a long stroke is read once.
    }
    boundStroke(message, check);
    boundOpacity(message, check);
    return check.verdict();
}

bool InboundGuard::admit(pb::Text& message)
{
    Check check("text", message.baseinfo().gid());
    if (message.has_position())
        boundPoint(message.mutable_position(), check);
    if (message.has_text() && cutText(message.mutable_text()))
        check.clamp("text length");
    if (message.has_fontstyle()) {
        pb::FontStyle* font = message.mutable_fontstyle();
        if (font->has_pixelsize() && font->pixelsize() > InputLimits::kMaxFontPixelSize) {
            font->set_pixelsize(InputLimits::kMaxFontPixelSize);
            check.clamp("font size");
        }
        if (font->has_wordspacing()) {
            const float spacing = font->wordspacing();
            const float limit = float(InputLimits::kMaxFontPixelSize);
            if (!qIsFinite(spacing)) {
                font->clear_wordspacing();
                check.clamp("word spacing");
            } else if (std::abs(spacing) > limit) {
                font->set_wordspacing(std::clamp(spacing, -limit, limit));
                check.clamp("word spacing");
            }
        }
    }
    boundStroke(message, check);
    boundOpacity(message, check);
    return check.verdict();
}

bool InboundGuard::admit(pb::UserAction& action)
{
    if (!action.has_mouseinfo())
        return true;
    Check check("pointer of user", std::to_string(action.userid()));
    pb::UserMouseInfoData* info = action.mutable_mouseinfo();
    if (info->has_mouseposition())
        boundPoint(info->mutable_mouseposition(), check);
    if (cutText(info->mutable_text()))
        check.clamp("label length");
    return check.verdict();
}

} // namespace whiteboard
