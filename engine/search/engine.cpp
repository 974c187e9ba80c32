// The one record of settings and search limits.
#include "engine/search/engine.h"

engineStruct engine;
