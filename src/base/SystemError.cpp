#include "base/SystemError.h"

#include <cerrno>
#include <system_error>

namespace qv {

std::string systemMessage(int code) {
    switch (code) {
        case ENOENT: return "fichier ou dossier introuvable";
        case EACCES:
        case EPERM: return "permission refusée";
        case EROFS: return "système de fichiers en lecture seule";
        case ENOSPC: return "plus de place sur le disque";
        case EDQUOT: return "quota de disque dépassé";
        case ENAMETOOLONG: return "nom de fichier trop long";
        case EISDIR: return "c'est un dossier";
        case ENOTDIR: return "un élément du chemin n'est pas un dossier";
        case ELOOP: return "trop de liens symboliques";
        case EEXIST: return "le fichier existe déjà";
        case EBUSY:
        case ETXTBSY: return "fichier occupé";
        case EMFILE:
        case ENFILE: return "trop de fichiers ouverts";
        case EFBIG: return "fichier trop gros";
        case EIO: return "erreur d'entrée-sortie";
        case ENOMEM: return "mémoire insuffisante";
        case EINVAL: return "argument invalide";
        case EAGAIN: return "ressource momentanément indisponible";
        case EINTR: return "interrompu";
        case EPIPE: return "tube ou connexion fermé";
        case ENODEV:
        case ENXIO: return "périphérique introuvable";
        case ETIMEDOUT: return "délai dépassé";
        case EXDEV: return "déplacement impossible d'un disque à un autre";
        case ENOTEMPTY: return "dossier non vide";
        case ESPIPE: return "fichier non positionnable (tube ou périphérique)";
        case ECANCELED: return "opération annulée";
        case EOVERFLOW: return "valeur trop grande";
        case ENOLCK: return "verrou impossible";
        case ESTALE: return "fichier réseau périmé";
        case ENOTSUP: return "opération non prise en charge";
        case ECONNREFUSED: return "connexion refusée";
        case ENOEXEC: return "programme non exécutable";
        case E2BIG: return "liste d'arguments trop longue";
        case ECHILD: return "aucun processus enfant";
        case EMLINK: return "trop de liens";
        case ERANGE: return "résultat hors limites";
        default: return "erreur système " + std::to_string(code);
    }
}

std::string systemMessage(const std::error_code& ec) {
    if (ec.category() == std::system_category() || ec.category() == std::generic_category())
        return systemMessage(ec.value());
    return "erreur " + std::to_string(ec.value());
}

}  // namespace qv
