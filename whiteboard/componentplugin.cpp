#include "componentplugin.h"

#include "moduleregistration.h"

void ComponentPlugin::registerTypes(const char* uri)
{
    whiteboard::registerModuleTypes(uri);
}
