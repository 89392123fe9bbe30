#pragma once

#include <QQmlExtensionPlugin>

// Entry of the QML module: registers the module's types on import.
class ComponentPlugin : public QQmlExtensionPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

public:
    void registerTypes(const char* uri) override;
};
