// libFuzzer target: everything another participant can send goes through
// GraphicScene::receiveData, as raw bytes and as structured hostile messages.
//
// The first input byte picks the mode (WHITEBOARD_FUZZ_MODE=raw|envelope|
// structured fixes it): 0 parses the rest as a TransferData, 1 wraps it as
// the payload of one envelope, so the inner parser sees arbitrary bytes, and
// 2 drives a generator of well-formed messages full of hostile values.
//
// With WHITEBOARD_FUZZ_SEEDS=<dir> the target writes its seed corpus there
// and exits: real messages of every kind, built by real items, and the
// reproducers of the known hangs and of unbounded geometry.
#include "graphics/graphicarrowline.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphicimagecodec.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "scene/graphicscene.h"
#include "scene/itemcodec.h"

#include "proto/whiteboard.pb.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QLoggingCategory>

#include <fuzzer/FuzzedDataProvider.h>
#include <google/protobuf/stubs/logging.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

namespace pb = im::whiteboard;
using whiteboard::GraphicScene;

namespace {

enum Mode : uint8_t { Raw = 0, Envelope = 1, Structured = 2, ModeCount = 3 };

int forcedMode = -1;
std::unique_ptr<GraphicScene> scene;
int inputsOnScene = 0;

std::string envelopeOf(const pb::WhiteboardData& body)
{
    pb::TransferData data;
    data.mutable_multi()->add_whiteboarddatalist()->set_data(body.SerializeAsString());
    return data.SerializeAsString();
}

// --- structured generator ---------------------------------------------------

float hostileFloat(FuzzedDataProvider& in)
{
    static const float table[] = {
        0.0f, -0.0f, 1.0f, 540.0f, 4999.0f, 5000.0f, 100001.0f, -100001.0f, 1e9f, -1e9f, 3e38f, -3e38f,
        std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::denorm_min(),
        2147483648.0f, -2147483904.0f,
    };
    if (in.ConsumeBool())
        return in.PickValueInArray(table);
    return in.ConsumeFloatingPoint<float>();
}

void fillPoint(pb::Point* point, FuzzedDataProvider& in)
{
    point->set_x(hostileFloat(in));
    point->set_y(hostileFloat(in));
}

std::string hostileGid(FuzzedDataProvider& in)
{
    // A few gids recur, so that updates and removals meet earlier adds.
    static const char* known[] = { "1", "2", "-3", "", "99999999999999999999" };
    if (in.ConsumeBool())
        return in.PickValueInArray(known);
    return in.ConsumeRandomLengthString(24);
}

template <class Message>
void fillCommon(Message* m, FuzzedDataProvider& in)
{
    pb::GraphicBaseInfo* info = m->mutable_baseinfo();
    info->set_gid(hostileGid(in));
    info->set_userid(in.ConsumeIntegralInRange<int64_t>(-1, 3));
    info->set_timestamp(in.ConsumeIntegral<int64_t>());
    info->set_type(in.ConsumeIntegral<int32_t>());
    if (in.ConsumeBool())
        m->set_opacity(hostileFloat(in));
    if (in.ConsumeBool())
        m->mutable_fillstyle()->set_color(in.ConsumeRandomLengthString(12));
    if (in.ConsumeBool()) {
        pb::StrokeStyle* s = m->mutable_strokestyle();
        s->set_color(in.ConsumeRandomLengthString(12));
        s->set_dashpattern(in.ConsumeRandomLengthString(16));
        s->set_width(in.ConsumeBool() ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange(0, 20));
        s->set_linecap(pb::StrokeStyle_LineCapStyle(in.ConsumeIntegral<int32_t>()));
        s->set_linejoin(pb::StrokeStyle_LineJoinStyle(in.ConsumeIntegral<int32_t>()));
    }
}

// One input in this many carries a huge stroke or text. They cost the
// target tens of milliseconds each under the sanitizers, so a campaign made
// mostly of them explores little else.
constexpr int kHugeOneIn = 64;

bool huge(FuzzedDataProvider& in)
{
    return in.ConsumeIntegralInRange(0, kHugeOneIn - 1) == 0;
}

int pointCount(FuzzedDataProvider& in)
{
    // Mostly few, now and then past the limit.
    return huge(in) ? in.ConsumeIntegralInRange(0, 25000) : in.ConsumeIntegralInRange(0, 12);
}

template <class Message>
void fillFrame(Message* m, FuzzedDataProvider& in)
{
    if (in.ConsumeBool())
        fillPoint(m->mutable_leftpos(), in);
    if (in.ConsumeBool())
        m->set_width(hostileFloat(in));
    if (in.ConsumeBool())
        m->set_heigth(hostileFloat(in));
}

std::string pictureBytes(FuzzedDataProvider& in)
{
    if (in.ConsumeBool())
        return in.ConsumeRandomLengthString(256);
    // A real picture of a random small size, or a header that claims a huge one.
    QImage image(in.ConsumeIntegralInRange(1, 64), in.ConsumeIntegralInRange(1, 64), QImage::Format_ARGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << image;
    if (in.ConsumeBool() && bytes.size() > 24) {
        // PNG's width and height sit at bytes 16 to 23 of the file, after the 4-byte null marker.
        const uint32_t side = in.ConsumeIntegral<uint32_t>();
        for (int i = 0; i < 4; ++i) {
            bytes[4 + 16 + i] = char(side >> (24 - 8 * i));
            bytes[4 + 20 + i] = char(side >> (24 - 8 * i));
        }
    }
    return bytes.toStdString();
}

void fillAction(pb::GraphicAction* action, FuzzedDataProvider& in)
{
    action->set_gid(hostileGid(in));
    action->set_graphicactiontype(pb::GraphicActionType(in.ConsumeIntegralInRange(-1, 4)));
    const int entries = in.ConsumeIntegralInRange(0, 3);
    switch (in.ConsumeIntegralInRange(0, 9)) {
    case 0:
        for (int i = 0; i < entries; ++i) {
            pb::Rect* m = action->mutable_rectdata()->add_data();
            fillCommon(m, in);
            fillFrame(m, in);
        }
        break;
    case 1:
        for (int i = 0; i < entries; ++i) {
            pb::Ellipse* m = action->mutable_ellipsedata()->add_data();
            fillCommon(m, in);
            fillFrame(m, in);
        }
        break;
    case 2:
        for (int i = 0; i < entries; ++i) {
            pb::Image* m = action->mutable_imagedata()->add_data();
            m->mutable_baseinfo()->set_gid(hostileGid(in));
            fillFrame(m, in);
            if (in.ConsumeBool())
                m->set_data(pictureBytes(in));
        }
        break;
    case 3:
    case 4:
        for (int i = 0; i < entries; ++i) {
            const bool arrow = action->has_arrowdata() || (!action->has_linedata() && in.ConsumeBool());
            auto fill = [&in](auto* m) {
                fillCommon(m, in);
                if (in.ConsumeBool())
                    fillPoint(m->mutable_startpoint(), in);
                if (in.ConsumeBool())
                    fillPoint(m->mutable_endpoint(), in);
            };
            if (arrow)
                fill(action->mutable_arrowdata()->add_data());
            else
                fill(action->mutable_linedata()->add_data());
        }
        break;
    case 5:
        for (int i = 0; i < entries; ++i) {
            pb::Polyline* m = action->mutable_polylinedata()->add_data();
            fillCommon(m, in);
            const int count = pointCount(in);
            const bool crossing = in.ConsumeBool();
            for (int p = 0; p < count; ++p) {
                if (crossing)
                    fillPoint(m->add_points(), in);
                else {
                    pb::Point* point = m->add_points();
                    point->set_x(float(p % 997));
                    point->set_y(float((p * 7919) % 701));
                }
            }
        }
        break;
    case 6:
        for (int i = 0; i < entries; ++i) {
            pb::Path* m = action->mutable_pathdata()->add_data();
            fillCommon(m, in);
            if (in.ConsumeBool()) {
                m->set_path(in.ConsumeRandomLengthString(200));
                continue;
            }
            const int count = pointCount(in);
            std::string text = "M 0 0";
            for (int p = 0; p < count; ++p) {
                // Zig-zags across a square: every piece crosses many others.
                text += " L " + std::to_string((p * 7919) % 800) + " " + std::to_string((p % 2) * 600);
            }
            if (in.ConsumeBool())
                text += " L " + std::to_string(hostileFloat(in)) + " nan";
            text += " z";
            m->set_path(text);
        }
        break;
    case 7:
        for (int i = 0; i < entries; ++i) {
            pb::Text* m = action->mutable_textdata()->add_data();
            fillCommon(m, in);
            if (in.ConsumeBool())
                fillPoint(m->mutable_position(), in);
            const size_t length = huge(in) ? 70000 : in.ConsumeIntegralInRange<size_t>(0, 40);
            m->set_text(std::string(length, 'W') + in.ConsumeRandomLengthString(16));
            if (in.ConsumeBool()) {
                pb::FontStyle* f = m->mutable_fontstyle();
                f->set_pixelsize(in.ConsumeIntegral<int32_t>());
                f->set_stretch(in.ConsumeIntegral<int32_t>());
                f->set_wordspacing(hostileFloat(in));
                f->set_bold(in.ConsumeBool());
                f->add_familys(in.ConsumeRandomLengthString(8));
            }
            if (in.ConsumeBool())
                m->set_alignment(pb::Text_Alignment(in.ConsumeIntegral<int32_t>()));
        }
        break;
    case 8:
        action->mutable_canvasdata();
        break;
    default:
        // No list at all: the unknown-data branch.
        break;
    }
}

std::string structuredMessage(FuzzedDataProvider& in)
{
    pb::TransferData data;
    if (in.ConsumeBool() && in.ConsumeBool()) {
        data.mutable_userjoin()->set_oldesttimestamp(in.ConsumeIntegral<int64_t>());
        return data.SerializeAsString();
    }
    const int envelopes = in.ConsumeIntegralInRange(0, 6);
    for (int i = 0; i < envelopes && in.remaining_bytes() > 0; ++i) {
        pb::WhiteboardData body;
        const int kind = in.ConsumeIntegralInRange(-1, 3);
        body.set_datatype(pb::WhiteboardData_Type(kind));
        switch (in.ConsumeIntegralInRange(0, 2)) {
        case 0:
            fillAction(body.mutable_graphicactiondata(), in);
            break;
        case 1: {
            pb::UserAction* action = body.mutable_useractiondata();
            action->set_actiontype(pb::UserAction_Type(in.ConsumeIntegralInRange(-1, 3)));
            action->set_userid(in.ConsumeIntegralInRange<int64_t>(-1, 3));
            action->mutable_mouseinfo()->set_text(in.ConsumeRandomLengthString(32));
            fillPoint(action->mutable_mouseinfo()->mutable_mouseposition(), in);
            break;
        }
        default: {
            pb::UserOperation* operation = body.mutable_useroperationdata();
            operation->set_operationtype(pb::UserOperation_Type(in.ConsumeIntegralInRange(-1, 2)));
            operation->set_userid(in.ConsumeIntegralInRange<int64_t>(-1, 3));
            break;
        }
        }
        data.mutable_multi()->add_whiteboarddatalist()->set_data(body.SerializeAsString());
    }
    return data.SerializeAsString();
}

// --- seeds ------------------------------------------------------------------

std::string itemAdd(whiteboard::GraphicItem* item)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_gid(item->gid().toStdString());
    action->set_graphicactiontype(pb::GraphicActionAdd);
    whiteboard::ItemCodec::write(*item, action);
    delete item;
    return envelopeOf(body);
}

template <class Item>
Item* withOutline(Item* item, const QPainterPath& outline)
{
    item->setOutlinePath(outline);
    item->setBoundary(outline.boundingRect());
    item->setPen(QPen(Qt::blue, 3));
    return item;
}

// The pen message that froze a receiving board: 600 points crossing each other.
std::string crossingStroke(int points)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_gid("crossing");
    pb::Path* path = action->mutable_pathdata()->add_data();
    path->mutable_baseinfo()->set_gid("crossing");
    path->mutable_strokestyle()->set_width(2);
    std::string text = "M 0 0";
    for (int i = 1; i < points; ++i)
        text += " L " + std::to_string((i * 7919) % 800) + " " + std::to_string((i % 2) * 600);
    path->set_path(text + " z");
    return envelopeOf(body);
}

// Geometry that reached float-to-int conversions: NaN, infinite and huge
// values in an item, an update and a pointer.
std::string unboundedGeometry()
{
    pb::TransferData data;
    auto add = [&data](const pb::WhiteboardData& body) {
        data.mutable_multi()->add_whiteboarddatalist()->set_data(body.SerializeAsString());
    };
    const float inf = std::numeric_limits<float>::infinity();
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_gid("far");
    pb::Rect* rect = action->mutable_rectdata()->add_data();
    rect->mutable_baseinfo()->set_gid("far");
    rect->mutable_leftpos()->set_x(3e38f);
    rect->mutable_leftpos()->set_y(-3e38f);
    rect->set_width(inf);
    rect->set_heigth(std::nanf(""));
    add(body);
    action->set_graphicactiontype(pb::GraphicActionUpdate);
    rect->mutable_leftpos()->set_x(1e30f);
    rect->set_width(1e30f);
    rect->set_heigth(1e30f);
    add(body);
    pb::WhiteboardData pointer;
    pointer.set_datatype(pb::WhiteboardData::WhiteboardDataUserAction);
    pb::UserAction* user = pointer.mutable_useractiondata();
    user->set_actiontype(pb::UserAction::UserActionMouseInfo);
    user->set_userid(2);
    user->mutable_mouseinfo()->mutable_mouseposition()->set_x(std::nanf(""));
    add(pointer);
    user->mutable_mouseinfo()->mutable_mouseposition()->set_x(-inf);
    user->mutable_mouseinfo()->mutable_mouseposition()->set_y(1e38f);
    add(pointer);
    pb::WhiteboardData clear;
    clear.set_datatype(pb::WhiteboardData::WhiteboardDataUserOperation);
    add(clear);
    return data.SerializeAsString();
}

void writeSeeds(const QString& directory)
{
    QDir().mkpath(directory);
    int index = 0;
    auto write = [&](uint8_t mode, const std::string& bytes) {
        QFile file(QStringLiteral("%1/seed-%2").arg(directory).arg(index++, 3, 10, QLatin1Char('0')));
        if (file.open(QIODevice::WriteOnly)) {
            file.putChar(char(mode));
            file.write(bytes.data(), qint64(bytes.size()));
        }
    };
    QPainterPath stroke;
    stroke.moveTo(10, 10);
    for (int i = 1; i < 40; ++i)
        stroke.lineTo(10 + i * 5, 10 + (i % 3) * 7);
    QPainterPath frame;
    frame.addRect(100, 100, 200, 120);
    QPainterPath line;
    line.moveTo(20, 30);
    line.lineTo(300, 200);

    GraphicScene* s = scene.get();
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicPenItem(s, nullptr), stroke)));
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicLineSegmentItem(s, nullptr), stroke)));
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicRectItem(s, nullptr), frame)));
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicEllipseItem(s, nullptr), frame)));
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicLineItem(s, nullptr), line)));
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicArrowLineItem(s, nullptr), line)));
    auto* text = new whiteboard::GraphicTextItem(QStringLiteral("hello"), QFont(), s, nullptr);
    write(Raw, itemAdd(withOutline(text, frame)));
    QImage picture(8, 6, QImage::Format_ARGB32);
    picture.fill(Qt::green);
    write(Raw, itemAdd(withOutline(new whiteboard::GraphicImage(s->addImage(picture), s, nullptr), frame)));
    write(Raw, crossingStroke(600));
    write(Raw, unboundedGeometry());
    // Structured seeds: a few byte strings the generator turns into varied messages.
    for (int i = 0; i < 8; ++i)
        write(Structured, std::string(64, char(i * 37 + 1)));
}

void resetScene()
{
    scene = std::make_unique<GraphicScene>();
    scene->setCurrentUserId(1);
    inputsOnScene = 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Quiet: the target must spend its time on the input, not on logs.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.warning=false\nwhiteboard.input=false"));
    google::protobuf::SetLogHandler(nullptr);
    static QGuiApplication app(*argc, *argv);
    resetScene();
    const QByteArray mode = qgetenv("WHITEBOARD_FUZZ_MODE");
    if (mode == "raw")
        forcedMode = Raw;
    else if (mode == "envelope")
        forcedMode = Envelope;
    else if (mode == "structured")
        forcedMode = Structured;
    const QString seeds = qEnvironmentVariable("WHITEBOARD_FUZZ_SEEDS");
    if (!seeds.isEmpty()) {
        writeSeeds(seeds);
        std::exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const int mode = forcedMode >= 0 ? forcedMode : data[0] % ModeCount;
    const auto* bytes = reinterpret_cast<const char*>(data + 1);
    const size_t length = size - 1;

    auto* message = new pb::TransferData;
    switch (mode) {
    case Raw:
        if (!message->ParseFromArray(bytes, int(length))) {
            delete message;
            return 0;
        }
        break;
    case Envelope:
        message->mutable_multi()->add_whiteboarddatalist()->set_data(bytes, length);
        break;
    default: {
        FuzzedDataProvider in(data + 1, length);
        message->ParseFromString(structuredMessage(in));
        break;
    }
    }
    scene->receiveData(message);
    // Received pictures are decoded on the scene's pool; their hand-over is
    // part of the input.
    scene->imageCodec()->waitForDone();

    // Items leave through deleteLater; a fresh scene now and then keeps the
    // state of one input from piling up under the next.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    if (++inputsOnScene >= 64) {
        resetScene();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return 0;
}
