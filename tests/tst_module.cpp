// The module as a host sees it: loaded by import from the build tree alone.
#include <QFileInfo>
#include <QLibrary>
#include <QMetaMethod>
#include <QPluginLoader>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QTest>

#include <dlfcn.h>

class tst_Module : public QObject
{
    Q_OBJECT

private slots:
    void importCreatesView();
    void registrations_data();
    void registrations();
    void compiledInResources();
    void pluginFace();
};

void tst_Module::importCreatesView()
{
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import QtQuick\n"
                      "import com.im.whiteboard 1.0\n"
                      "WhiteboardView { width: 200; height: 100; currentAccountId: accountId; property int accountId: 7; userName: \"ann\" }\n",
                      QUrl());
    QScopedPointer<QObject> view(component.create());
    QVERIFY2(view, qPrintable(component.errorString()));
    QVERIFY(view->inherits("WhiteboardView"));
    QCOMPARE(view->property("currentAccountId").toLongLong(), 7);
    QObject* scene = view->property("scene").value<QObject*>();
    QVERIFY(scene);
    QCOMPARE(scene->property("sceneSize").toSize(), QSize(1080, 720));
    QCOMPARE(scene->parent(), view.data());
}

void tst_Module::registrations_data()
{
    QTest::addColumn<QByteArray>("qml");
    QTest::addColumn<QString>("error");
    QTest::newRow("scene without a view") << QByteArray("GraphicScene {}") << QString();
    QTest::newRow("bare item") << QByteArray("GraphicItem {}") << QString();
    QTest::newRow("thumbnail") << QByteArray("ThumbnailImage {}") << QString();
    QTest::newRow("palette singleton")
        << QByteArray("QtObject { property int width: GraphicPalette.strokeWidth; property int eraser: GraphicDefine.Eraser }")
        << QString();
    QTest::newRow("relay connection, a module beside it")
        << QByteArray("import com.im.whiteboard.relay 1.0\nRelayConnection { boardId: \"b\"; active: status === RelayConnection.Offline }") << QString();
    QTest::newRow("enumerations are not creatable") << QByteArray("GraphicDefine {}") << QStringLiteral("GraphicDefine");
}

void tst_Module::registrations()
{
    QFETCH(QByteArray, qml);
    QFETCH(QString, error);
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import QtQuick\nimport com.im.whiteboard 1.0\n" + qml, QUrl());
    QScopedPointer<QObject> object(component.create());
    if (error.isEmpty()) {
        QVERIFY2(object, qPrintable(component.errorString()));
    } else {
        QVERIFY(!object);
        QVERIFY2(component.errorString().contains(error), qPrintable(component.errorString()));
    }
    if (qml.startsWith("QtObject")) {
        QCOMPARE(object->property("width").toInt(), 1);
        QCOMPARE(object->property("eraser").toInt(), 10);
    }
}

void tst_Module::compiledInResources()
{
    // Loading the module makes its resources available.
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import com.im.whiteboard 1.0\nGraphicScene {}", QUrl());
    QScopedPointer<QObject> object(component.create());
    QVERIFY(object);

    QFile qmldir(QStringLiteral(":/com/im/whiteboard/qmldir"));
    QVERIFY(qmldir.open(QIODevice::ReadOnly));
    const QByteArray text = qmldir.readAll();
    QCOMPARE(text.size(), 185);
    QVERIFY(text.startsWith("module com.im.whiteboard\r\nlinktarget whiteboardplugin\r\n"));
    QVERIFY(text.endsWith("prefer :/com/im/whiteboard/\r\n\r\n"));

    QFile arrow(QStringLiteral(":/arrow.svg"));
    QVERIFY(arrow.open(QIODevice::ReadOnly));
    QCOMPARE(arrow.size(), 1292);
    QVERIFY(arrow.readAll().contains("viewBox=\"0 0 17 23\""));
}

void tst_Module::pluginFace()
{
    const QString path = qEnvironmentVariable("QML_IMPORT_PATH") + QStringLiteral("/com/im/whiteboard/libwhiteboardplugin.so");
    QPluginLoader loader(path);
    QCOMPARE(loader.metaData().value(QStringLiteral("IID")).toString(), QStringLiteral("org.qt-project.Qt.QQmlExtensionInterface"));
    QCOMPARE(loader.metaData().value(QStringLiteral("className")).toString(), QStringLiteral("ComponentPlugin"));

    // Found in the plugin itself, not only in the library behind it.
    QLibrary plugin(path);
    QVERIFY2(plugin.load(), qPrintable(plugin.errorString()));
    const auto entry = plugin.resolve("_Z36qml_register_types_com_im_whiteboardv");
    QVERIFY(entry);
    Dl_info info;
    QVERIFY(dladdr(reinterpret_cast<void*>(entry), &info));
    QCOMPARE(QFileInfo(QString::fromLocal8Bit(info.dli_fname)).canonicalFilePath(), QFileInfo(path).canonicalFilePath());

    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import com.im.whiteboard 1.0\nGraphicScene {}", QUrl());
    QScopedPointer<QObject> scene(component.create());
    QVERIFY(scene);
    const QMetaObject* meta = scene->metaObject();
    const QMetaMethod timestamp = meta->method(meta->indexOfSlot("serverTimestamp()"));
    QVERIFY(timestamp.isValid());
    QCOMPARE(timestamp.access(), QMetaMethod::Protected);
}

QTEST_MAIN(tst_Module)
#include "tst_module.moc"
