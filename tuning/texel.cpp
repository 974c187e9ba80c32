#include "tuning/texel.h"

void doTheTexel() {}
