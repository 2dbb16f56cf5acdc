#include "audio/SystemErrorText.h"

#include <cerrno>

namespace velmora {

std::string systemErrorText(int e) {
    switch (e) {
    case EACCES:
    case EPERM: return "accès refusé";
    case EBUSY: return "périphérique occupé par une autre application";
    case ENODEV:
    case ENXIO: return "périphérique absent ou débranché";
    case ENOENT: return "fichier ou périphérique introuvable";
    case ENOSPC: return "disque plein";
    case EDQUOT: return "quota disque dépassé";
    case EROFS: return "support en lecture seule";
    case EIO: return "erreur d'entrée-sortie du support";
    case ENOMEM: return "mémoire insuffisante";
    case EPIPE: return "flux audio interrompu (données arrivées trop tard)";
    case ESTRPIPE: return "flux audio suspendu par le système";
    case EINVAL: return "réglage refusé";
    case EAGAIN: return "ressource momentanément indisponible";
    case EMFILE:
    case ENFILE: return "trop de fichiers ouverts";
    case ENAMETOOLONG: return "nom de fichier trop long";
    case EISDIR: return "un dossier porte ce nom";
    case ETIMEDOUT: return "délai dépassé";
    case ENOSYS:
    case EOPNOTSUPP: return "opération non prise en charge";
    default: return "erreur système n° " + std::to_string(e);
    }
}

}  // namespace velmora
