#include "componentplugin.h"

#include "moduleregistration.h"

#include <QQmlEngine>

// The module's registration entry, exported by the plugin library itself and
// not only by the backing library, for loaders that resolve it in the plugin.
// It stands alone: a call to the backing library's function of the same name
// could bind back to this one.
Q_DECL_EXPORT void qml_register_types_com_im_whiteboard()
{
    qmlRegisterModule("com.im.whiteboard", 1, 0);
}

void ComponentPlugin::registerTypes(const char* uri)
{
    whiteboard::registerModuleTypes(uri);
}
