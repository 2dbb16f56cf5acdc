#include "audio/LiveMonitorError.h"

namespace velmora {

std::string LiveMonitorError::message() const {
    switch (code) {
    case Code::deviceNotFound:
        return "Carte son introuvable (UID " + uid + "). Vérifiez qu'elle est connectée et reconnue par le système.";
    case Code::deviceSetFailed:
        return "Impossible de cibler la carte son (statut audio " + std::to_string(status) + ").";
    case Code::channelMapFailed:
        return "Impossible de configurer le routage canal (statut audio " + std::to_string(status) + ").";
    case Code::engineStartFailed: return "Démarrage du moteur audio échoué : " + detail;
    case Code::noOutputUnit: return "Sortie audio inaccessible (pilote audio indisponible).";
    case Code::bufferCreationFailed: return "Impossible de créer le buffer de monitoring.";
    }
    return {};
}

}  // namespace velmora
