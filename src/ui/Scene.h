// Scenes for screenshots and trials by hand: command-line arguments that put
// the window in a known state once a set is open, and say "prêt" on standard
// output when it is worth photographing.
//
//   --scene-taille LxH        size of the window
//   --scene-temps s           the play head, once the set is installed
//   --scene-zoom-plan         the play head in the middle of the first zooming plan after it
//   --scene-format 9:16       the output format
//   --scene-cadrage x,y       every camera's crop (odd cameras mirrored on x)
//   --scene-drop n            the range and the view on drop n (from 1)
//   --scene-auto              an automatic edit with zooms and VHS on every camera
//   --scene-lecture           playing
//   --scene-calage            the menu of the first file to place by hand (in doubt, else unplaced) open
//   --scene-synchro           "prêt" while the synchronisation runs (from 30 %), not after
//   --scene-capture png       the window photographed into png when the scene is ready
//                             (with --scene-synchro: as the synchronisation passes 30 %)
//   --scene-pret              print "prêt" when the screen is settled
#pragma once

#include <QObject>
#include <memory>
#include <string>
#include <vector>

namespace qv {
class AppModel;
}

namespace qv::ui {

class MainWindow;
class ModelObject;
class UnderWayCapture;

class Scene : public QObject {
    Q_OBJECT
public:
    ~Scene() override;
    // Nothing when no scene argument is given.
    static std::unique_ptr<Scene> start(AppModel& model, ModelObject& object, MainWindow& window,
                                        const std::vector<std::string>& arguments);

private:
    Scene(AppModel& model, ModelObject& object, MainWindow& window, std::vector<std::string> arguments);
    void step();
    void apply();
    void framesShown();
    void openHandMenu();
    void ready();
    void fail(const std::string& message);
    bool has(const char* flag) const;
    std::string value(const char* flag) const;

    AppModel& model_;
    ModelObject& object_;
    MainWindow& window_;
    std::vector<std::string> args_;
    std::unique_ptr<UnderWayCapture> synchro_;  // the moment of --scene-synchro
    bool applied_ = false;
    bool set_ = false;     // apply has run
    bool framed_ = false;  // pictures came after it
    bool said_ = false;
};

}  // namespace qv::ui
