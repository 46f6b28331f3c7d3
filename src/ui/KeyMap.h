// The keys of the editing screen: one function turns a key press into an
// operation of the edit or the player. Camera keys work from the unshifted
// digit row of both a QWERTY and a French AZERTY keyboard ("é" is camera 2).
#pragma once

#include <QString>
#include <Qt>
#include <optional>

namespace qv {
class AppPlayer;
class EditModel;
}

namespace qv::ui {


struct KeyPress {
    int key = 0;  // Qt::Key
    QString characters;
    Qt::KeyboardModifiers modifiers = Qt::NoModifier;
};

namespace KeyMap {

// Camera number (from 0) of a typed character, if it is a camera key.
std::optional<int> camera(QChar c);

// Runs the key's operation; false when the key means nothing here and should
// go on to the rest of the application. Named keys are tested first, then
// the first typed character in lower case.
bool handle(const KeyPress& press, EditModel& edit, AppPlayer& player);

}  // namespace KeyMap
}  // namespace qv::ui
