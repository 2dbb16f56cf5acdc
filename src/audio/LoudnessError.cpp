#include "audio/LoudnessError.h"

namespace velmora {

std::string LoudnessError::message() const {
    switch (code) {
    case Code::tooManyChannels:
        return "Trop de canaux (" + std::to_string(channelCount) + "). Maximum géré : 16.";
    case Code::cannotRead: return "Impossible de lire ce fichier audio.";
    case Code::unsupportedFormat: return "Format non pris en charge (essayez WAV, AIFF, MP4, MOV).";
    case Code::corruptFile: return "Fichier illisible ou endommagé.";
    case Code::tooQuiet: return "Signal trop faible ou silencieux pour être mesuré.";
    case Code::noAudioTrack: return "Aucune piste audio trouvée dans ce fichier.";
    case Code::cannotWrite:
        return "Impossible d'écrire le fichier de sortie (vérifiez l'espace disque et les permissions).";
    case Code::diskAccess: return "Accès au disque refusé. Vérifiez les permissions du dossier.";
    case Code::tooLarge: return "Fichier trop volumineux pour la mémoire disponible.";
    case Code::sourceChanged: return "Le fichier source a changé depuis son analyse : analysez-le de nouveau.";
    case Code::pictureNotCarried:
        return "Image de la vidéo source impossible à reprendre telle quelle dans un fichier .mov.";
    case Code::sameAsSource: return "Le master ne peut pas remplacer son fichier source : choisissez un autre nom.";
    case Code::outputTooLargeForAiff:
        return "Master trop volumineux pour le format AIFF (4 Go au plus) : choisissez le format WAV.";
    case Code::rateConversion: return "Conversion de la fréquence d'échantillonnage impossible.";
    case Code::nothingToWrite: return "Aucun échantillon à écrire.";
    case Code::nameTooLong: return "Nom de fichier trop long pour le système de fichiers : choisissez un nom plus court.";
    case Code::interrupted: return "Interrompu avant la fin : rien n'a été écrit.";
    case Code::targetNotReached:
        return "Le master écrit n'atteint pas sa cible de sonie : il n'a pas été enregistré.";
    }
    return {};
}

}  // namespace velmora
