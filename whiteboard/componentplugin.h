#pragma once

#include <QQmlExtensionPlugin>

// Entry of the QML module: registers the module's types on import.
class ComponentPlugin : public QQmlExtensionPlugin
{
    Q_OBJECT
    // The identifier without the "/1.0" of QQmlExtensionInterface_iid: hosts
    // check the plugin's metadata for this exact text.
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QQmlExtensionInterface")

public:
    void registerTypes(const char* uri) override;
};
