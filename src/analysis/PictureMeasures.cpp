#include "analysis/PictureMeasures.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>

namespace qv::analysis {

struct MeasuredPicture::Planes {
    cv::Mat luma;    // CV_32F, full size of the sampled picture
    cv::Mat middle;  // the part of `luma` motion is measured on
};

namespace {

constexpr float blackLevel = 20, whiteLevel = 245;

}  // namespace

MeasuredPicture::MeasuredPicture(const media::RgbaFrame& frame) : planes_(std::make_unique<Planes>()) {
    if (frame.width <= 0 || frame.height <= 0 || frame.pixels.size() < static_cast<size_t>(frame.width) * frame.height * 4)
        return;
    const cv::Mat rgba(frame.height, frame.width, CV_8UC4, const_cast<uint8_t*>(frame.pixels.data()));
    cv::Mat rgb;
    rgba.convertTo(rgb, CV_32FC4);
    std::vector<cv::Mat> ch;
    cv::split(rgb, ch);
    // BT.709 luma, and the two colour-difference axes it leaves.
    cv::Mat& y = planes_->luma;
    y = 0.2126f * ch[0] + 0.7152f * ch[1] + 0.0722f * ch[2];
    const cv::Mat cb = ch[2] - y, cr = ch[0] - y;

    cv::Scalar mean, dev, cbDev, crDev, cbMean, crMean;
    cv::meanStdDev(y, mean, dev);
    cv::meanStdDev(cb, cbMean, cbDev);
    cv::meanStdDev(cr, crMean, crDev);
    const double pixels = static_cast<double>(y.total());
    look_.level = static_cast<float>(mean[0]);
    look_.contrast = static_cast<float>(dev[0]);
    look_.colour = static_cast<float>(std::hypot(cbDev[0], crDev[0]));
    look_.crushed = static_cast<float>(cv::countNonZero(y < blackLevel) / pixels);
    look_.clipped = static_cast<float>(cv::countNonZero(y > whiteLevel) / pixels);

    // Cameras and editors burn captions, logos and time stamps along the
    // edges; standing still while the shot moves, they would vote for no
    // motion. The middle of the frame carries the shot.
    const cv::Rect mid(y.cols / 10, y.rows / 4, y.cols * 8 / 10, y.rows / 2);
    planes_->middle = y(mid).clone();

    // Halved once first: grain and compression noise live at the finest
    // scale, a focused shot's edges survive the halving.
    cv::Mat half, lap;
    cv::pyrDown(y, half);
    cv::Laplacian(half, lap, CV_32F);
    cv::Scalar lapMean, lapDev;
    cv::meanStdDev(lap, lapMean, lapDev);
    look_.detail = static_cast<float>(lapDev[0] * lapDev[0]);
}

MeasuredPicture::~MeasuredPicture() = default;
MeasuredPicture::MeasuredPicture(MeasuredPicture&&) noexcept = default;
MeasuredPicture& MeasuredPicture::operator=(MeasuredPicture&&) noexcept = default;

PictureStep MeasuredPicture::stepTo(const MeasuredPicture& later) const {
    PictureStep step;
    const cv::Mat& a = planes_->luma;
    const cv::Mat& b = later.planes_->luma;
    if (a.empty() || a.size() != b.size()) return step;
    cv::Mat diff;
    cv::absdiff(a, b, diff);
    step.change = static_cast<float>(cv::mean(diff)[0]);
    // A Hann window keeps the frame's edges from voting for no motion.
    const cv::Mat& ma = planes_->middle;
    const cv::Mat& mb = later.planes_->middle;
    thread_local cv::Mat window;
    if (window.size() != ma.size()) cv::createHanningWindow(window, ma.size(), CV_32F);
    double response = 0;
    const cv::Point2d shift = cv::phaseCorrelate(ma, mb, window, &response);
    step.dx = static_cast<float>(shift.x / a.cols);
    step.dy = static_cast<float>(shift.y / a.cols);
    step.confidence = static_cast<float>(std::isfinite(response) ? response : 0);
    return step;
}

}  // namespace qv::analysis
