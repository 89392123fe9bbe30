// Time for a board to receive hostile strokes, beside what the same message
// cost when a received stroke's hit band was simplified on arrival; then the
// worst stroke, polyline, text and picture within the limits: the GUI
// thread's time to receive each and the first frame that paints it (a frame
// holds the item's lock, which the GUI thread waits on).
// Run by hand: ./bench_receive [--old] [--worst N]   (--old also times the
// old band, which takes minutes from 600 crossing points on; --worst N runs
// only row N of the second table)
#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicimagecodec.h"
#include "graphics/graphicpaths.h"
#include "graphics/graphicpenitem.h"
#include "inputlimits.h"
#include "scene/graphicscene.h"

#include "proto/whiteboard.pb.h"

#include <QDataStream>
#include <QIODevice>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPainter>

#include <cmath>
#include <functional>
#include <cstdio>
#include <string>

using namespace whiteboard;
namespace pb = im::whiteboard;

namespace {

// A zig-zag across an 800 x 600 square when `crossing`, else a dense
// spiral that never crosses itself.
std::string pathText(int points, bool crossing)
{
    std::string text = "M 0 0";
    for (int i = 1; i < points; ++i) {
        if (crossing) {
            text += " L " + std::to_string((i * 7919) % 800) + " " + std::to_string((i % 2) * 600);
        } else {
            const double a = i * 0.01;
            text += " L " + std::to_string(400 + a * 10 * std::cos(a)) + " " + std::to_string(300 + a * 10 * std::sin(a));
        }
    }
    return text + " z";
}

pb::TransferData* wrap(const pb::WhiteboardData& body)
{
    auto* data = new pb::TransferData;
    data->mutable_multi()->add_whiteboarddatalist()->set_data(body.SerializeAsString());
    return data;
}

pb::TransferData* message(const std::string& path)
{
    pb::WhiteboardData body;
    body.mutable_graphicactiondata()->set_gid("s");
    pb::Path* entry = body.mutable_graphicactiondata()->mutable_pathdata()->add_data();
    entry->mutable_baseinfo()->set_gid("s");
    entry->mutable_strokestyle()->set_width(3);
    entry->set_path(path);
    return wrap(body);
}

// The zig-zag of pathText as a polyline's points.
pb::TransferData* polylineMessage(int points)
{
    pb::WhiteboardData body;
    body.mutable_graphicactiondata()->set_gid("s");
    pb::Polyline* entry = body.mutable_graphicactiondata()->mutable_polylinedata()->add_data();
    entry->mutable_baseinfo()->set_gid("s");
    entry->mutable_strokestyle()->set_width(3);
    for (int i = 0; i < points; ++i) {
        pb::Point* point = entry->add_points();
        point->set_x(float((i * 7919) % 800));
        point->set_y(float((i % 2) * 600));
    }
    return wrap(body);
}

// A text of the longest length, on one line or broken every `lineLength`.
pb::TransferData* textMessage(int lineLength)
{
    pb::WhiteboardData body;
    body.mutable_graphicactiondata()->set_gid("s");
    pb::Text* entry = body.mutable_graphicactiondata()->mutable_textdata()->add_data();
    entry->mutable_baseinfo()->set_gid("s");
    entry->mutable_position()->set_x(10);
    entry->mutable_position()->set_y(10);
    entry->mutable_fontstyle()->set_pixelsize(20);
    std::string text;
    for (int i = 0; i < InputLimits::kMaxTextLength; ++i)
        text += (lineLength && i % lineLength == lineLength - 1) ? '\n' : char('A' + i % 26);
    entry->set_text(text);
    return wrap(body);
}

// A picture of the largest side, noisy enough that its PNG is large.
pb::TransferData* pictureMessage()
{
    const int side = InputLimits::kMaxPictureSide;
    QImage picture(side, side, QImage::Format_ARGB32);
    for (int y = 0; y < side; ++y) {
        auto* line = reinterpret_cast<QRgb*>(picture.scanLine(y));
        for (int x = 0; x < side; ++x)
            line[x] = qRgb(x * 7 ^ y, (x * y) >> 5, (x + y * 3) & 0xff);
    }
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << picture;
    pb::WhiteboardData body;
    body.mutable_graphicactiondata()->set_gid("s");
    pb::Image* entry = body.mutable_graphicactiondata()->mutable_imagedata()->add_data();
    entry->mutable_baseinfo()->set_gid("s");
    entry->set_width(800);
    entry->set_heigth(600);
    entry->set_data(bytes.toStdString());
    return wrap(body);
}

// The item's paint into a frame of the default view, as the render thread
// calls it, with the frame's clip.
double firstFrame(GraphicScene& scene)
{
    QImage frame(1080, 720, QImage::Format_ARGB32_Premultiplied);
    frame.fill(Qt::white);
    QPainter painter(&frame);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);
    painter.setClipRect(frame.rect());
    QElapsedTimer timer;
    timer.start();
    scene.itemByGid(QStringLiteral("s"))->paint(&painter, nullptr);
    return timer.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("whiteboard.input=false"));
    const bool old = app.arguments().contains(QStringLiteral("--old"));

    struct Row
    {
        const char* name;
        int points;
        bool crossing;
        const char* anchor;
    };
    const Row rows[] = {
        { "crossing stroke", 100, true, "29 ms before" },
        { "crossing stroke", 400, true, "6.9 s before" },
        { "crossing stroke", 600, true, "minutes before (the 5.9 KB message)" },
        { "crossing stroke", 1000, true, "over 200 s before" },
        { "dense stroke", 10000, false, "3.7 s before" },
        { "crossing stroke", 20000, true, "goal: well under 50 ms" },
    };
    std::printf("%-16s %7s %9s %12s  %s\n", "case", "points", "receive", "old band", "anchor");
    for (const Row& row : rows) {
        GraphicScene scene;
        const std::string path = pathText(row.points, row.crossing);
        QElapsedTimer timer;
        timer.start();
        scene.receiveData(message(path));
        const double received = timer.nsecsElapsed() / 1e6;

        QString band = QStringLiteral("-");
        if (old && row.points <= 600) {
            const QPainterPath outline = GraphicPenItem::parsePathString(QString::fromStdString(path));
            timer.restart();
            GraphicPaths::strokeOf(outline);
            band = QStringLiteral("%1 ms").arg(timer.nsecsElapsed() / 1e6, 0, 'f', 1);
        }
        std::printf("%-16s %7d %6.1f ms %12s  %s\n", row.name, row.points, received, qPrintable(band), row.anchor);
    }

    struct Worst
    {
        const char* name;
        std::function<pb::TransferData*()> make;
        const char* anchor;
    };
    // Anchors: the first frame before strokes were painted from a picture
    // and long texts laid out once, and before pictures were decoded off the
    // GUI thread (then inside receive), all with three fuzzers running.
    const Worst worst[] = {
        { "pen stroke, 20,000 crossing points", [] { return message(pathText(InputLimits::kMaxPoints, true)); },
          "frame 241 s before" },
        { "polyline, 20,000 crossing points", [] { return polylineMessage(InputLimits::kMaxPoints); },
          "frame 355 s before" },
        { "text, 64 Ki characters on one line", [] { return textMessage(0); }, "25 ms every frame before" },
        { "text, 64 Ki characters in lines of 80", [] { return textMessage(80); }, "11 ms every frame before" },
        { "picture, 4096 x 4096", pictureMessage, "receive + ready on the GUI thread before" },
    };
    // First frame: what the board shows at once (a long stroke's stand-in, a
    // picture's empty frame); ready: until the pool has made the stroke's
    // picture or decoded the pixels; next frame: the frame after that.
    std::printf("\n%-40s %9s %11s %11s %11s  %s\n", "worst item (goal: GUI and frames under 50 ms)", "receive",
                "1st frame", "ready", "next frame", "anchor");
    const int only = app.arguments().indexOf(QStringLiteral("--worst"));
    for (const Worst& row : worst) {
        if (only > 0 && &row - worst != app.arguments().value(only + 1).toInt())
            continue;
        GraphicScene scene;
        pb::TransferData* data = row.make();
        QElapsedTimer timer;
        timer.start();
        scene.receiveData(data);
        const double received = timer.nsecsElapsed() / 1e6;
        const double first = firstFrame(scene);
        timer.restart();
        scene.imageCodec()->waitForDone();
        const double ready = timer.nsecsElapsed() / 1e6;
        const double next = firstFrame(scene);
        std::printf("%-40s %6.1f ms %8.1f ms %8.1f ms %8.1f ms  %s\n", row.name, received, first, ready, next, row.anchor);
    }
    return 0;
}
