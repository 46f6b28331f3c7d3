// ScreenModel: the application model as the screens of an open set read it.
// It turns camera numbers and source indices into the model's source ids,
// and hands the monitors the player's pictures. Its `changed` is the
// model's (coalesced once per turn of the event loop); widgets answer it by
// pulling state. It keeps nothing of its own. Main thread only.
#pragma once

#include <QImage>
#include <QObject>

#include "app/AppModel.h"
#include "edit/AngleStatus.h"

namespace qv::ui {

class ModelObject;

struct TrackMix {
    bool muted = false;
    double levelDb = 0;
};

// The caption of a camera's tile at time t.
inline AngleStatus angleStatus(const AngleInfo& angle, double t) {
    return qv::angleStatus(angle.hasPicture, angle.ranges, t);
}

class ScreenModel : public QObject {
    Q_OBJECT
public:
    // `app` and `object` must outlive this.
    ScreenModel(AppModel& app, ModelObject& object);

    AppModel& app() const { return app_; }
    EditModel& edit() const { return app_.edit(); }
    AppPlayer* player() const { return app_.player(); }
    // The player's shown picture of a camera, graded and scaled already,
    // sharing the player's pixels; null when it shows none.
    QImage picture(int camera) const;

    const std::vector<MediaSource>& sources() const { return app_.sources(); }
    std::vector<int> cameraSources() const { return app_.cameraSources(); }
    int cameraCount() const { return app_.cameraCount(); }
    QString cameraName(int camera) const { return QString::fromStdString(app_.cameraName(camera)); }
    PixelSize cameraSize(int camera) const { return app_.cameraSize(camera); }
    // The size the program is framed into: the camera's own for a landscape
    // output, the format's fixed size otherwise.
    PixelSize outputSize(int camera) const;

    OutputFormat format() const { return app_.format(); }
    CameraFrame framing(int camera) const;
    void setFraming(int camera, const CameraFrame& frame) { app_.setFraming(frame, camera); }
    bool gradeIsNeutral(int camera) const { return app_.grade(camera) == ColorGrade::neutral; }
    void openCrop(int camera);
    void openGrade(int camera);
    // Whether a tile draws its crop window: a format that crops, a crop
    // that is not neutral, or the crop panel open on this camera.
    bool showsCropWindow(int camera) const;

    // A camera's picture offset for the user: "+2 images (80 ms)", or
    // brief "+2 i"; milliseconds alone when it is no whole number of frames
    // ("+57 ms"); empty at 0.
    QString offsetText(int camera, bool brief) const;
    // Opens the sound panel on the camera's picture offset.
    void openOffset(int camera);

    TrackMix mix(int source) const;
    void toggleMute(int source);
    void applyAudio(int source, double levelDb);

signals:
    void changed();

private:
    AppModel& app_;
};

}  // namespace qv::ui
