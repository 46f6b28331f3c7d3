#include "base/SystemError.h"

#include <cerrno>

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
        default: return "erreur système " + std::to_string(code);
    }
}

}  // namespace qv
