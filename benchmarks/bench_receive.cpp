// Time for a board to receive hostile strokes, beside what the same message
// cost when a received stroke's hit band was simplified on arrival.
// Run by hand: ./bench_receive [--old]   (--old also times the old band,
// which takes minutes from 600 crossing points on)
#include "graphics/abstractgraphicshapeitem.h"
#include "graphics/graphicpenitem.h"
#include "scene/graphicscene.h"

#include "proto/whiteboard.pb.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QLoggingCategory>

#include <cmath>
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

pb::TransferData* message(const std::string& path)
{
    pb::WhiteboardData body;
    body.mutable_graphicactiondata()->set_gid("s");
    pb::Path* entry = body.mutable_graphicactiondata()->mutable_pathdata()->add_data();
    entry->mutable_baseinfo()->set_gid("s");
    entry->set_path(path);
    auto* data = new pb::TransferData;
    data->mutable_multi()->add_whiteboarddatalist()->set_data(body.SerializeAsString());
    return data;
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
            AbstractGraphicShapeItem::strokeOf(outline);
            band = QStringLiteral("%1 ms").arg(timer.nsecsElapsed() / 1e6, 0, 'f', 1);
        }
        std::printf("%-16s %7d %6.1f ms %12s  %s\n", row.name, row.points, received, qPrintable(band), row.anchor);
    }
    return 0;
}
