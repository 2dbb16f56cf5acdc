#pragma once
// The French words for what the system answers when a device or a file fails (an errno value):
// the window and the command line show these, never the C library's English.
#include <string>

namespace velmora {

// "périphérique occupé par une autre application" for EBUSY, …; a code it does not know reads
// "erreur système n° N".
std::string systemErrorText(int errnoValue);

}  // namespace velmora
