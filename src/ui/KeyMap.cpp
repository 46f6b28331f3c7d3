#include "ui/KeyMap.h"

#include "edit/EditModel.h"
#include "app/Ports.h"

namespace qv::ui::KeyMap {

namespace {

struct CameraKey {
    char16_t character;
    int camera;
};
// Digits, then the same keys unshifted on a French AZERTY keyboard.
constexpr CameraKey cameraKeys[] = {
    {u'1', 0}, {u'2', 1}, {u'3', 2}, {u'4', 3}, {u'5', 4}, {u'6', 5}, {u'7', 6}, {u'8', 7},
    {u'&', 0}, {u'é', 1}, {u'"', 2}, {u'\'', 3}, {u'(', 4}, {u'§', 5}, {u'è', 6}, {u'!', 7},
};

void togglePlay(EditModel& edit, AppPlayer& player) {
    if (edit.selectedSegment()) edit.select(std::nullopt);
    if (player.isPlaying())
        player.pause();
    else
        player.play();
}

void seekBy(EditModel& edit, AppPlayer& player, double seconds) {
    player.seek(player.currentTime() + seconds);
    edit.revealPlayhead();
}

}  // namespace

std::optional<int> camera(QChar c) {
    for (const CameraKey& k : cameraKeys)
        if (c.unicode() == k.character) return k.camera;
    return std::nullopt;
}

bool handle(const KeyPress& press, EditModel& edit, AppPlayer& player) {
    const bool shift = press.modifiers.testFlag(Qt::ShiftModifier);
    // The arrows and D take shift or nothing: with Ctrl, Alt or Meta they
    // are the system's or the menus' keys, not these.
    const bool other = press.modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    switch (press.key) {
        case Qt::Key_Space: togglePlay(edit, player); return true;
        case Qt::Key_Left:
            if (other) return false;
            seekBy(edit, player, shift ? -0.04 : -5);
            return true;
        case Qt::Key_Right:
            if (other) return false;
            seekBy(edit, player, shift ? 0.04 : 5);
            return true;
        case Qt::Key_Up: edit.jumpToCut(false); return true;
        case Qt::Key_Down: edit.jumpToCut(true); return true;
        case Qt::Key_Backspace:
        case Qt::Key_Delete: edit.deleteSegmentCut(); return true;
        case Qt::Key_Escape: edit.select(std::nullopt); return true;
        default: break;
    }
    if (press.characters.isEmpty()) return false;
    const QChar c = press.characters.at(0).toLower();
    switch (c.unicode()) {
        case u'd':
            if (other) return false;
            edit.jumpToDrop(!shift);
            return true;
        case u'z': edit.cycleZoom(); return true;
        case u'e': edit.setEffect(PlanEffect::shake); return true;
        case u'n': edit.setEffect(PlanEffect::none); return true;
        case u'a': edit.setEffect(PlanEffect::automatic); return true;
        case u'b': edit.toggleLook(LookKind::lens); return true;
        case u'm': edit.toggleLook(LookKind::shutter); return true;
        case u'v': edit.toggleLook(LookKind::vhs); return true;
        case u'i': edit.markIn(); return true;
        case u'o': edit.markOut(); return true;
        case u'x': edit.setMarks(std::nullopt, std::nullopt); return true;
        case u'c': edit.addEdit(player.currentTime()); return true;
        case u'k':
            if (!press.modifiers.testFlag(Qt::ControlModifier)) break;
            edit.addEdit(player.currentTime());
            return true;
        case u'+':
        case u'=': edit.zoomIn(); return true;
        case u'-':
        case u')': edit.zoomOut(); return true;
        default: break;
    }
    if (auto cam = camera(c)) {
        edit.pressCamera(*cam);
        return true;
    }
    return false;
}

}  // namespace qv::ui::KeyMap
