// The side panels of the workspace, one at a time on the right, chosen by
// the model's `rightPanel`. Each is a list of controls bound to fields of the
// application model or of the user's settings: every change goes through the
// model (which saves the project by itself), and `refresh` reads everything
// back after the model changed. No panel keeps project state of its own.
// Main thread only.
//
// This header gathers them all with the side that holds them; one panel's
// own header is enough where only that panel is used.
#pragma once

#include "ui/AutoPanel.h"
#include "ui/CropPanel.h"
#include "ui/DropsPanel.h"
#include "ui/EffectsPanel.h"
#include "ui/ExportPanel.h"
#include "ui/SettingsPanel.h"
#include "ui/SidePanel.h"
#include "ui/SoundPanel.h"
