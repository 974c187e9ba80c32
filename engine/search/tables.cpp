// The late-move reduction table.
#include "engine/search/tables.h"

#include <cmath>

int8_t LMR[128][256];

void initLMR() {
    for (int depth = 0; depth < 128; depth++) {
        for (int moveNumber = 0; moveNumber < 256; moveNumber++) {
            int reduction = 0;
            // Move number 3 is reduced by one ply at every depth, depth 0 included, deliberately.
            if (moveNumber == 3)
                reduction = 1;
            else if (moveNumber >= 4)
                // Integer division before the root. Exact for these small integers in double.
                reduction = static_cast<int>(std::sqrt(static_cast<double>((depth * (moveNumber - 2)) / 11)));
            LMR[depth][moveNumber] = static_cast<int8_t>(reduction);
        }
    }
}
