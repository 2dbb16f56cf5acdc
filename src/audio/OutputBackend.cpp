#include "audio/OutputBackend.h"

namespace velmora {

std::unique_ptr<OutputBackend> openOutputBackend(OutputBackendKind kind, OutputEvents& events) {
    switch (kind) {
    case OutputBackendKind::jack: return openJackBackend(events);
    case OutputBackendKind::alsa: return openAlsaBackend(events);
    case OutputBackendKind::automatic: break;
    }
    if (auto jack = openJackBackend(events)) return jack;
    return openAlsaBackend(events);
}

}  // namespace velmora
