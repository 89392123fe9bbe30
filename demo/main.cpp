// Demo host: two boards of one whiteboard side by side, for two users, joined
// through a relay that runs inside the demo; or one board on a running
// whiteboard-relay.
//
//   whiteboard-demo [--screenshot FILE]
//   whiteboard-demo --relay ws://HOST:PORT --board ID --user N --name NAME
//
// With --screenshot the window is rendered once, after every board has shown
// its first frame, written to FILE as PNG, and the program exits.
#include "moduleregistration.h"
#include "relay/relayserver.h"
#include "relay/sqliteboardstore.h"
#include "scene/graphicscene.h"
#include "whiteboardview.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHash>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStandardPaths>
#include <QTimer>

#include <cstdio>
#include <memory>

// Generated with the relay client's QML module.
void qml_register_types_com_im_whiteboard_relay();

namespace {

// The shown views only: a hidden board renders no frame.
void collectViews(QQuickItem* item, QList<WhiteboardView*>& views)
{
    if (!item->isVisible())
        return;
    if (auto* view = qobject_cast<WhiteboardView*>(item))
        views.append(view);
    const QList<QQuickItem*> children = item->childItems();
    for (QQuickItem* child : children)
        collectViews(child, views);
}

QString defaultExportFolder()
{
    const QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (!pictures.isEmpty() && QDir(pictures).exists())
        return pictures;
    return QDir::tempPath();
}

// Asks a scene for a whole frame: a dirty area of one unit at the origin
// counts as a change of every layer.
void requestFrame(whiteboard::GraphicScene* scene)
{
    scene->update(QRectF(0, 0, 1, 1));
}

// Renders the window once all boards have delivered a frame: first each
// scene's afterSynchronizing, then the window's next frameSwapped, then a grab.
class Screenshot : public QObject
{
public:
    Screenshot(QQuickWindow* window, const QList<WhiteboardView*>& views, const QString& path)
        : m_window(window)
        , m_views(views)
        , m_path(path)
    {
    }

    // Call once the events that the loading left queued have run: every
    // frame counted below then shows the boards as the QML set them up.
    void start()
    {
        if (m_views.isEmpty()) {
            fail(QStringLiteral("no board in the window"));
            return;
        }
        for (WhiteboardView* view : std::as_const(m_views)) {
            whiteboard::GraphicScene* scene = view->scene();
            connect(scene, &whiteboard::GraphicScene::afterSynchronizing, this, [this, view] { frameArrived(view); });
            requestFrame(scene);
        }
        // A guard against a board that never renders, not a pause.
        QTimer::singleShot(30000, this, [this] { fail(QStringLiteral("timed out waiting for the boards' first frames")); });
    }

private:
    // The first frame may have been under way before start(): ask for one
    // more and take the board as ready when that one arrives.
    void frameArrived(WhiteboardView* view)
    {
        int& frames = m_frames[view];
        if (++frames == 1) {
            requestFrame(view->scene());
            return;
        }
        if (frames != 2)
            return;
        if (++m_readyCount < m_views.size() || m_waitingForSwap)
            return;
        m_waitingForSwap = true;
        connect(m_window, &QQuickWindow::frameSwapped, this, &Screenshot::grab, Qt::QueuedConnection);
        m_window->update();
    }

    void grab()
    {
        if (m_done)
            return;
        m_done = true;
        const QImage image = m_window->grabWindow();
        if (image.isNull() || !image.save(m_path, "PNG")) {
            m_done = false;
            fail(QStringLiteral("cannot write %1").arg(m_path));
            return;
        }
        std::printf("screenshot written to %s (%dx%d)\n", qPrintable(m_path), image.width(), image.height());
        QCoreApplication::exit(0);
    }

    void fail(const QString& why)
    {
        if (m_done)
            return;
        m_done = true;
        std::fprintf(stderr, "screenshot failed: %s\n", qPrintable(why));
        QCoreApplication::exit(1);
    }

    QQuickWindow* m_window;
    QList<WhiteboardView*> m_views;
    QString m_path;
    QHash<WhiteboardView*, int> m_frames;
    int m_readyCount = 0;
    bool m_waitingForSwap = false;
    bool m_done = false;
};

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication::setApplicationName(QStringLiteral("whiteboard-demo"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Two whiteboards side by side, joined through a relay inside the demo, or one board on a running relay."));
    parser.addHelpOption();
    const QCommandLineOption screenshotOption(QStringLiteral("screenshot"),
                                              QStringLiteral("Render one frame of the window to <file> (PNG) and exit."),
                                              QStringLiteral("file"));
    parser.addOption(screenshotOption);
    const QCommandLineOption relayOption(QStringLiteral("relay"),
                                         QStringLiteral("Join the board on a running whiteboard-relay at <url> (ws://HOST:PORT) as one user, "
                                                        "instead of two users on a relay inside the demo."),
                                         QStringLiteral("url"));
    const QCommandLineOption boardOption(QStringLiteral("board"), QStringLiteral("Board to join with --relay (default: team-sketch)."),
                                         QStringLiteral("id"), QStringLiteral("team-sketch"));
    const QCommandLineOption userOption(QStringLiteral("user"), QStringLiteral("Account id with --relay (default: 1001)."),
                                        QStringLiteral("n"), QStringLiteral("1001"));
    const QCommandLineOption nameOption(QStringLiteral("name"), QStringLiteral("Name shown to the others with --relay (default: User <n>)."),
                                        QStringLiteral("name"));
    parser.addOptions({ relayOption, boardOption, userOption, nameOption });

    // Help needs no display: answer it before the application connects to one.
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument == "-h" || argument == "--help" || argument == "-?") {
            QString help = parser.helpText();
            help.replace(QStringLiteral("<executable_name>"), QFileInfo(QString::fromLocal8Bit(argv[0])).fileName());
            std::printf("%s", qPrintable(help));
            return 0;
        }
    }

    // Read before the application takes its own options out of argv: on X11
    // it takes --name (the window class), which is the demo's user name.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    QGuiApplication app(argc, argv);
    parser.process(arguments);
    const QString screenshotPath = parser.value(screenshotOption);

    // Without a display there is no GPU context to be had: draw in software.
    if (QGuiApplication::platformName() == QLatin1String("offscreen") && qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);

    // The demo links the module's library for its message classes. The
    // library announces the module when it loads, so the engine would skip the
    // module folder's optional plugin: the types are registered here instead.
    whiteboard::registerModuleTypes("com.im.whiteboard");
    qml_register_types_com_im_whiteboard_relay();

    // Without --relay the relay runs here, on a free loopback port, with its
    // boards in memory; Alice owns the demo board from the start.
    QVariantMap properties { { QStringLiteral("exportFolder"), defaultExportFolder() } };
    relay::SqliteBoardStore store(QStringLiteral(":memory:"));
    std::unique_ptr<relay::RelayServer> server;
    if (parser.isSet(relayOption)) {
        bool userOk = false;
        const qlonglong user = parser.value(userOption).toLongLong(&userOk);
        if (!userOk || user <= 0) {
            std::fprintf(stderr, "whiteboard-demo: --user needs a positive account id\n");
            return 2;
        }
        // Shown on the board too (the connection makes no attempt), but a
        // person who typed it reads it here first.
        const QUrl relayUrl(parser.value(relayOption));
        if (!relayUrl.isValid() || (relayUrl.scheme() != QLatin1String("ws") && relayUrl.scheme() != QLatin1String("wss")))
            std::fprintf(stderr, "whiteboard-demo: --relay wants a ws:// or wss:// URL, e.g. ws://127.0.0.1:8765, not \"%s\"\n",
                         qPrintable(parser.value(relayOption)));
        properties.insert(QStringLiteral("remote"), true);
        properties.insert(QStringLiteral("relayUrl"), QUrl(parser.value(relayOption)));
        properties.insert(QStringLiteral("boardId"), parser.value(boardOption));
        properties.insert(QStringLiteral("remoteAccountId"), user);
        properties.insert(QStringLiteral("remoteUserName"),
                          parser.isSet(nameOption) ? parser.value(nameOption) : QStringLiteral("User %1").arg(user));
    } else {
        QString error;
        if (!store.open(&error) || !store.createBoard(QStringLiteral("team-sketch"), 1001)) {
            std::fprintf(stderr, "whiteboard-demo: relay storage: %s\n", qPrintable(error));
            return 1;
        }
        server = std::make_unique<relay::RelayServer>(&store, relay::RelayOptions());
        if (!server->listen(QHostAddress::LocalHost, 0)) {
            std::fprintf(stderr, "whiteboard-demo: relay: %s\n", qPrintable(server->errorString()));
            return 1;
        }
        properties.insert(QStringLiteral("relayUrl"), QUrl(server->url()));
    }

    QQmlApplicationEngine engine;
    // With the types registered in-process, the engine refuses the module if
    // it also finds the module folder on its import path (QML_IMPORT_PATH
    // pointing at a build tree, say): leave such a folder out.
    QStringList importPaths = engine.importPathList();
    importPaths.removeIf([](const QString& path) {
        return QFileInfo::exists(path + QStringLiteral("/com/im/whiteboard/qmldir"));
    });
    engine.setImportPathList(importPaths);
    engine.setInitialProperties(properties);
    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreationFailed, &app, [] { QCoreApplication::exit(1); },
        Qt::QueuedConnection);
    engine.load(QUrl(QStringLiteral("qrc:/demo/Main.qml")));
    if (engine.rootObjects().isEmpty())
        return 1;

    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().constFirst());
    if (!window)
        return 1;

    if (!screenshotPath.isEmpty()) {
        QList<WhiteboardView*> views;
        collectViews(window->contentItem(), views);
        auto* screenshot = new Screenshot(window, views, QDir::current().absoluteFilePath(screenshotPath));
        screenshot->setParent(&app);
        QTimer::singleShot(0, screenshot, [screenshot] { screenshot->start(); });
    }

    return app.exec();
}
