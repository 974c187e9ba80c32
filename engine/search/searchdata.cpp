// Per-thread search tables.
#include "engine/search/searchdata.h"

#include <cstring>

void clearSearchHistory(searchDataStruct* data) {
    std::memset(data->history, 0, sizeof(data->history));
    std::memset(data->counterMoves, 0, sizeof(data->counterMoves));
    std::memset(data->counterMoveHistory, 0, sizeof(data->counterMoveHistory));
    std::memset(data->followUpHistory, 0, sizeof(data->followUpHistory));
}
