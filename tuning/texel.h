// The Texel tuner: coordinate descent of evaluation parameters against labelled positions.
#pragma once

// Reads lichess-good.epd from the working directory and runs the tuning loop.
void doTheTexel();
