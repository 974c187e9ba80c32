// Line output to the GUI. The UCI thread and the boss both write; every line goes out whole.
#pragma once

#include <sstream>
#include <string>

// Writes text and a line end as one unit and flushes.
void sendLine(const std::string& text);

// Joins the parts as a stream would and sends them as one line.
template <typename... Parts>
void say(const Parts&... parts) {
    std::ostringstream line;
    (line << ... << parts);
    sendLine(line.str());
}
