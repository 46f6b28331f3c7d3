#include "ui/DropClipsBox.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include "app/AppModel.h"
#include "ui/PanelControls.h"
#include "ui/Theme.h"

namespace qv::ui {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

// "{n} clips de {length} s au format {ratio}, dans {folder}."
QString summaryOf(AppModel& model) {
    const auto& drops = model.drops();
    int count = 0;
    for (const Drop& d : drops)
        if (model.clipDrops().empty() || model.clipDrops().count(d.id)) ++count;
    const OutputFormat format = model.format() == OutputFormat::landscape ? OutputFormat::portrait : model.format();
    const QString which = model.clipDrops().empty() ? QStringLiteral("un par drop") : QStringLiteral("les drops cochés");
    return QStringLiteral("%1 clip%2 de %3 s (%4), au format %5, dans %6.")
        .arg(count)
        .arg(count > 1 ? QStringLiteral("s") : QString())
        .arg(QString::number(model.dropPre() + model.dropPost(), 'f', 0), which, QString::fromUtf8(rawValue(format)),
             q(model.settings().exportFolder().filename().string()));
}

}  // namespace

DropClipsBox::DropClipsBox(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(6);
    export_ = new QuorvelButton("film.stack", QStringLiteral("Exporter les clips des drops"), QuorvelButton::Kind::main, this);
    export_->setMinimumHeight(36);
    connect(export_, &QAbstractButton::clicked, this, [this] {
        model_.exportDropClips();
        refresh();
    });
    column->addWidget(export_);
    summary_ = new QLabel(this);
    summary_->setWordWrap(true);
    summary_->setFont(Theme::text(10));
    summary_->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::gray2().name()));
    column->addWidget(summary_);

    running_ = new QWidget(this);
    auto* job = new QVBoxLayout(running_);
    job->setContentsMargins(0, 0, 0, 0);
    job->setSpacing(6);
    line_ = new QLabel(running_);
    line_->setFont(Theme::numbers(12));
    line_->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::accent().name()));
    job->addWidget(line_);
    bar_ = new QProgressBar(running_);
    bar_->setRange(0, 1000);
    bar_->setTextVisible(false);
    job->addWidget(bar_);
    cancel_ = new QuorvelButton(QStringLiteral("Annuler les clips"), QuorvelButton::Kind::outlined, running_);
    connect(cancel_, &QAbstractButton::clicked, this, [this] { model_.cancelDropClips(); });
    job->addWidget(cancel_);
    column->addWidget(running_);

    // The job moves on outside of the model's fields: its progress is read.
    poll_.setInterval(250);
    connect(&poll_, &QTimer::timeout, this, [this] { refresh(); });
    poll_.start();
    refresh();
}

void DropClipsBox::refresh() {
    const bool running = model_.isExportingClips();
    const bool busy = running || (model_.videoExporter() && model_.videoExporter()->isRunning());
    export_->setEnabled(!model_.drops().empty() && !busy);
    export_->setVisible(!running);
    summary_->setVisible(!running && !model_.drops().empty());
    if (!model_.drops().empty()) summary_->setText(summaryOf(model_));
    running_->setVisible(running);
    if (running) {
        line_->setText(q(model_.clipsProgressLine()));
        bar_->setValue(static_cast<int>(model_.clipsProgress() * 1000));
    }
}

}  // namespace qv::ui
