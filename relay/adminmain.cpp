// whiteboard-admin: administration of a relay's store, also while relays run
// on it.
//
//   whiteboard-admin list [--db FILE | --store URL]
//   whiteboard-admin delete BOARD [--db FILE | --store URL]
//   whiteboard-admin backup FILE [--db FILE]
//   whiteboard-admin export BOARD IMAGE [--db FILE | --store URL]
//
// export renders the board headless through the module's own view and writes
// what its exportScene writes; that needs the whole component, which the relay
// program does not link, hence a program of its own.
#include "relay/boardadmin.h"
#include "relay/postgresboardstore.h"
#include "relay/sqliteboardstore.h"

#include "proto/whiteboard.pb.h"
#include "scene/graphicscene.h"
#include "whiteboardview.h"

#include <QCommandLineParser>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QUrl>

#include <cstdio>
#include <memory>

namespace {

// How long export waits for the page to be painted.
constexpr int kExportTimeoutMs = 30000;

int fail(const QString& message)
{
    std::fprintf(stderr, "whiteboard-admin: %s\n", qPrintable(message));
    return 1;
}

int list(relay::SqlBoardStore* store)
{
    QList<relay::BoardAdmin::BoardInfo> boards;
    QString error;
    if (!relay::BoardAdmin(store).list(&boards, &error))
        return fail(error);
    std::printf("board\towner\titems\tbytes\tlast activity\n");
    for (const relay::BoardAdmin::BoardInfo& board : std::as_const(boards)) {
        const QString when = board.lastActivity.isValid() ? board.lastActivity.toString(Qt::ISODate) : QStringLiteral("-");
        std::printf("%s\t%lld\t%lld\t%lld\t%s\n", qPrintable(board.id), board.owner, board.items, board.bytes, qPrintable(when));
    }
    return 0;
}

int exportBoard(relay::SqlBoardStore* store, const QString& boardId, const QString& file)
{
    QList<relay::BoardStore::Item> items;
    if (!store->board(boardId).exists)
        return fail(QStringLiteral("no board %1").arg(boardId));
    if (!store->items(boardId, &items))
        return fail(QStringLiteral("cannot read the items of %1").arg(boardId));

    QQuickWindow window;
    window.resize(1080, 720);
    auto* view = new WhiteboardView(window.contentItem());
    view->setSize(QSizeF(1080, 720));
    view->setId(boardId);
    window.show();
    // The items arrive as a participant's replay does: one multi message.
    auto* message = new im::whiteboard::TransferData;
    message->set_whiteboardid(boardId.toStdString());
    for (const relay::BoardStore::Item& item : std::as_const(items))
        message->mutable_multi()->add_whiteboarddatalist()->ParseFromArray(item.envelope.constData(), int(item.envelope.size()));
    bool painted = false;
    QObject::connect(view->scene(), &whiteboard::GraphicScene::thumbnailChanged, view, [&painted] { painted = true; });
    view->receiveData(message);
    // The first thumbnail after the items is the page with them.
    const QDeadlineTimer deadline(kExportTimeoutMs);
    while (!painted && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    if (!painted || !view->exportScene(file))
        return fail(QStringLiteral("cannot write %1").arg(file));
    std::printf("%s: %lld items\n", qPrintable(file), qint64(items.size()));
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    // Headless: the page is painted in software, without a display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("whiteboard-admin"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Lists, deletes, backs up and exports the boards of a whiteboard-relay store."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("list | delete BOARD | backup FILE (SQLite; PostgreSQL: pg_dump) | export BOARD IMAGE"));
    const QCommandLineOption dbOption(QStringLiteral("db"), QStringLiteral("SQLite file of the boards (default: boards.sqlite)."),
                                      QStringLiteral("file"), QStringLiteral("boards.sqlite"));
    const QCommandLineOption storeOption(QStringLiteral("store"), QStringLiteral("PostgreSQL store instead of --db: postgresql://..."),
                                         QStringLiteral("url"));
    parser.addOptions({ dbOption, storeOption });
    parser.process(app);

    const QStringList args = parser.positionalArguments();
    const QString command = args.value(0);
    const int arity = command == QLatin1String("list") ? 1 : command == QLatin1String("export") ? 3 : 2;
    if (args.isEmpty() || args.size() != arity
        || !QStringList { QStringLiteral("list"), QStringLiteral("delete"), QStringLiteral("backup"), QStringLiteral("export") }.contains(command)) {
        std::fprintf(stderr, "%s", qPrintable(parser.helpText()));
        return 2;
    }

    std::unique_ptr<relay::SqlBoardStore> store;
    if (parser.isSet(storeOption)) {
        const QUrl url(parser.value(storeOption));
        if (!relay::PostgresBoardStore::isPostgresUrl(url))
            return fail(QStringLiteral("--store takes a postgresql:// URL"));
        if (command == QLatin1String("backup"))
            return fail(QStringLiteral("back a PostgreSQL store up with pg_dump (pg_dump -Fc DB > FILE; pg_restore -d DB FILE)"));
        store = std::make_unique<relay::PostgresBoardStore>(url);
    } else {
        // Administration never creates a store that is not there.
        if (!QFileInfo::exists(parser.value(dbOption)))
            return fail(QStringLiteral("no store at %1").arg(parser.value(dbOption)));
        store = std::make_unique<relay::SqliteBoardStore>(parser.value(dbOption));
    }
    QString error;
    if (!store->open(&error))
        return fail(QStringLiteral("cannot open the store: %1").arg(error));

    int result = 0;
    relay::BoardAdmin admin(store.get());
    if (command == QLatin1String("list")) {
        result = list(store.get());
    } else if (command == QLatin1String("delete")) {
        if (admin.remove(args.at(1), &error))
            std::printf("deleted %s\n", qPrintable(args.at(1)));
        else
            result = fail(error.isEmpty() ? QStringLiteral("no board %1").arg(args.at(1)) : error);
    } else if (command == QLatin1String("backup")) {
        if (admin.backup(args.at(1), &error))
            std::printf("backed up into %s\n", qPrintable(args.at(1)));
        else
            result = fail(error);
    } else {
        result = exportBoard(store.get(), args.at(1), args.at(2));
    }
    store->close();
    return result;
}
