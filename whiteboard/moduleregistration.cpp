#include "moduleregistration.h"

#include "graphicdefine.h"
#include "graphics/graphicitem.h"
#include "graphics/graphicpalette.h"
#include "scene/graphicscene.h"
#include "thumbnailimage.h"
#include "whiteboardview.h"

#include <QQmlEngine>

namespace whiteboard {

void registerModuleTypes(const char* uri)
{
    static bool registered = false;
    if (registered)
        return;
    registered = true;

    qmlRegisterType<WhiteboardView>(uri, 1, 0, "WhiteboardView");
    qmlRegisterType<GraphicScene>(uri, 1, 0, "GraphicScene");
    qmlRegisterType<GraphicItem>(uri, 1, 0, "GraphicItem");
    qmlRegisterType<ThumbnailImage>(uri, 1, 0, "ThumbnailImage");
    qmlRegisterSingletonType<GraphicPalette>(uri, 1, 0, "GraphicPalette",
                                             [](QQmlEngine*, QJSEngine*) -> QObject* { return GraphicPalette::instance(); });
    qmlRegisterUncreatableType<GraphicDefine>(uri, 1, 0, "GraphicDefine", QStringLiteral("GraphicDefine"));

    qRegisterMetaType<WhiteboardView*>();
    qRegisterMetaType<GraphicScene*>();
    qRegisterMetaType<GraphicItem*>();
    qRegisterMetaType<ThumbnailImage*>();
    qRegisterMetaType<GraphicPalette*>();
}

} // namespace whiteboard
