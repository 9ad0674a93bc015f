#include "tools/ProbeTimeline.h"
#include "tools/ProbeSupport.h"

#include <errno.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaSource.h>

using android::MediaBuffer;
using android::MediaSource;
using android::MetaData;
using android::sp;

namespace zirk_probe {

namespace {

// Page layout, in SVG user units (pixels). Each panel has its plot at
// (kPlotLeft, kPlotTop) within the panel, with the size axis on the left and
// the bit-rate axis on the right.
constexpr double kPlotLeft = 80, kPlotTop = 50, kPlotWidth = 1000, kPlotHeight = 200;
constexpr double kPageWidth = kPlotLeft + kPlotWidth + 90;
constexpr double kHeaderHeight = 56, kPanelHeight = 300;
constexpr size_t kMaxBars = 1000;  // at most one bar per pixel column
constexpr size_t kMaxRateSteps = 500;
constexpr int kSeekProbes = 100;
constexpr int kMaxSeekFailures = 10;
constexpr double kSeekBudgetSeconds = 2.0;

const char kStyle[] =
        "<style>text{font:12px sans-serif;fill:#222}.title{font-weight:bold;font-size:14px}.note{fill:#555}"
        ".frame{fill:#fafafa;stroke:#999}.grid{stroke:#e6e6e6}.bar{fill:#6b8fbf}.key{fill:#e0702a}"
        ".rate{fill:none;stroke:#b0206a;stroke-width:1.5}.seek{stroke:#1f9a3a;stroke-dasharray:4 3}"
        ".end{text-anchor:end}.mid{text-anchor:middle}</style>\n";

struct Sample {
    int64_t timeUs;
    uint32_t size;
    bool sync;
};

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return n < 0 ? std::string() : std::string(text, std::min(static_cast<size_t>(n), sizeof(text) - 1));
}

// Text safe inside an XML element: markup characters escaped; control
// characters and bytes outside ASCII (a hostile file's names) shown as '?'.
std::string escapeXml(const std::string& text) {
    std::string out;
    for (char c : text) {
        unsigned char u = static_cast<unsigned char>(c);
        if (c == '&') out += "&amp;";
        else if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '"') out += "&quot;";
        else out.push_back(u < 0x20 || u > 0x7E ? '?' : c);
    }
    return out;
}

// A step of 1, 2 or 5 times a power of ten cutting `span` into about `parts`.
double niceStep(double span, int parts) {
    double raw = span / parts;
    if (!(raw > 0) || !std::isfinite(raw)) return 1;
    double power = std::pow(10.0, std::floor(std::log10(raw)));
    double m = raw / power;
    return (m <= 1 ? 1 : m <= 2 ? 2 : m <= 5 ? 5 : 10) * power;
}

std::string tickLabel(double v, double step) {
    if (std::fabs(v) < step / 2) v = 0;  // not "-0"
    if (std::fabs(v) >= 1e7) return fmt("%.4g", v);
    int decimals = step >= 1 ? 0 : std::min(6, static_cast<int>(std::ceil(-std::log10(step) - 1e-9)));
    return fmt("%.*f", decimals, v);
}

// Tick values in [lo, hi], `step` apart; a bounded count whatever the rounding.
std::vector<double> ticks(double lo, double hi, double step) {
    std::vector<double> out;
    double first = std::ceil(lo / step) * step;
    for (int k = 0; k < 30; ++k) {
        double v = first + k * step;
        if (v > hi + step * 1e-6) break;
        out.push_back(v);
    }
    return out;
}

// A double time made an int64_t without overflow.
int64_t clampToInt64(double v) {
    if (!(v > -9.2e18)) return std::numeric_limits<int64_t>::min() + 1;
    if (!(v < 9.2e18)) return std::numeric_limits<int64_t>::max() - 1;
    return static_cast<int64_t>(v);
}

}  // namespace

struct TimelineWriter::Track : public ProbeSampleSink {
    size_t index = 0;
    std::string title;
    int64_t durationUs = 0;  // 0: unknown
    uint64_t count = 0, keys = 0, bytes = 0, untimed = 0, dropped = 0;
    std::vector<Sample> samples;  // the timed ones, in reading order
    std::vector<int64_t> seekUs;  // distinct landing times, ascending

    void onSample(const ProbeSample& s) override {
        ++count;
        keys += s.sync;
        bytes = bytes > UINT64_MAX - s.size ? UINT64_MAX : bytes + s.size;
        if (!s.hasTime) {
            ++untimed;
        } else if (samples.size() >= kMaxSamples) {
            ++dropped;
        } else {
            samples.push_back({s.timeUs, static_cast<uint32_t>(std::min<size_t>(s.size, UINT32_MAX)), s.sync});
        }
    }
    bool finish(std::string*) override { return true; }

    void draw(double top, std::string* out) const;
};

void TimelineWriter::Track::draw(double top, std::string* out) const {
    const double bottom = kPlotTop + kPlotHeight, right = kPlotLeft + kPlotWidth;
    std::string note = fmt("%llu samples, %llu key, %.3f MB; %zu seek points", static_cast<unsigned long long>(count),
                           static_cast<unsigned long long>(keys), bytes / 1e6, seekUs.size());
    if (untimed) note += fmt("; %llu without a time not drawn", static_cast<unsigned long long>(untimed));
    if (dropped) note += fmt("; only the first %zu timed samples drawn", samples.size());
    *out += fmt("<g class=\"track\" id=\"track-%zu\" transform=\"translate(0,%.0f)\">\n", index, top);
    *out += fmt("<text class=\"title\" x=\"%.0f\" y=\"18\">", kPlotLeft) + escapeXml(title) + "</text>\n";
    *out += fmt("<text class=\"note\" x=\"%.0f\" y=\"36\">", kPlotLeft) + escapeXml(note) + "</text>\n";
    *out += fmt("<rect class=\"frame\" x=\"%.0f\" y=\"%.0f\" width=\"%.0f\" height=\"%.0f\"/>\n", kPlotLeft, kPlotTop,
                kPlotWidth, kPlotHeight);
    if (samples.empty()) {
        *out += fmt("<text class=\"mid\" x=\"%.0f\" y=\"%.0f\">no samples with a time</text>\n</g>\n",
                    kPlotLeft + kPlotWidth / 2, kPlotTop + kPlotHeight / 2);
        return;
    }

    // The time axis spans every sample and seek point, in seconds (doubles:
    // any int64_t time fits, with no overflow).
    double lo = HUGE_VAL, hi = -HUGE_VAL;
    for (const Sample& s : samples) lo = std::min(lo, s.timeUs / 1e6), hi = std::max(hi, s.timeUs / 1e6);
    for (int64_t t : seekUs) lo = std::min(lo, t / 1e6), hi = std::max(hi, t / 1e6);
    // The track lasts about one sample spacing past its last sample time,
    // which the axis shows: the last sample's bar is as wide as the others.
    const double gap = hi > lo ? (hi - lo) / std::max<size_t>(1, samples.size() - 1) : 1;
    hi += gap;
    const double span = hi - lo;
    auto xOf = [&](double s) { return kPlotLeft + (s - lo) / span * kPlotWidth; };
    auto slot = [&](double s, size_t n) {
        // Times are whole microseconds: evenly spaced samples sit up to 1 us
        // off their slots' edges. One within 1% of a slot before an edge
        // belongs to the slot it starts.
        double f = (s - lo) / span * n + 0.01;
        return f <= 0 ? size_t(0) : f >= n - 1 ? n - 1 : static_cast<size_t>(f);
    };

    // Bars: the largest sample of each slice of time; the bit rate: bytes
    // per window of whole seconds (one second unless the track is long).
    struct Bin {
        uint32_t max = 0;
        bool used = false, key = false;
    };
    std::vector<Bin> bins(std::min(kMaxBars, samples.size()));
    const double windowS = std::max(1.0, std::ceil(span / kMaxRateSteps));
    const double windows = std::min<double>(kMaxRateSteps + 1, std::floor((hi - gap - lo) / windowS) + 1);
    std::vector<double> windowBytes(std::max<size_t>(1, static_cast<size_t>(windows)));
    for (const Sample& s : samples) {
        Bin& b = bins[slot(s.timeUs / 1e6, bins.size())];
        b.max = std::max(b.max, s.size);
        b.used = true;
        b.key = b.key || s.sync;
        windowBytes[std::min(windowBytes.size() - 1, static_cast<size_t>((s.timeUs / 1e6 - lo) / windowS))] += s.size;
    }
    uint32_t maxSize = 0;
    for (const Bin& b : bins) maxSize = std::max(maxSize, b.max);
    // The last window may be cut short by the end of the track.
    auto windowSeconds = [&](size_t w) { return std::min(windowS, std::max(gap, hi - lo - w * windowS)); };
    double maxRate = 0;
    for (size_t w = 0; w < windowBytes.size(); ++w) {
        maxRate = std::max(maxRate, windowBytes[w] * 8 / 1000 / windowSeconds(w));
    }

    // Axes: time (s) below, size (kB) left, bit rate (kbit/s) right; each
    // scale topped by its last tick.
    double timeStep = niceStep(span, 10);
    for (double t : ticks(lo, hi, timeStep)) {
        double x = xOf(t);
        *out += fmt("<line class=\"grid\" x1=\"%.1f\" y1=\"%.0f\" x2=\"%.1f\" y2=\"%.0f\"/>", x, kPlotTop, x, bottom);
        *out += fmt("<text class=\"mid\" x=\"%.1f\" y=\"%.0f\">", x, bottom + 15) + tickLabel(t, timeStep) +
                "</text>\n";
    }
    double sizeStep = niceStep(std::max(maxSize / 1000.0, 0.001), 4);
    double sizeTop = std::ceil(maxSize / 1000.0 / sizeStep) * sizeStep;
    if (!(sizeTop > 0)) sizeTop = sizeStep;
    double rateStep = niceStep(std::max(maxRate, 0.001), 4);
    double rateTop = std::ceil(maxRate / rateStep) * rateStep;
    if (!(rateTop > 0)) rateTop = rateStep;
    for (double v : ticks(0, sizeTop, sizeStep)) {
        double y = bottom - v / sizeTop * kPlotHeight;
        *out += fmt("<line class=\"grid\" x1=\"%.0f\" y1=\"%.1f\" x2=\"%.0f\" y2=\"%.1f\"/>", kPlotLeft, y, right, y);
        *out += fmt("<text class=\"end\" x=\"%.0f\" y=\"%.1f\">", kPlotLeft - 5, y + 4) + tickLabel(v, sizeStep) +
                "</text>\n";
    }
    for (double v : ticks(0, rateTop, rateStep)) {
        *out += fmt("<text x=\"%.0f\" y=\"%.1f\">", right + 5, bottom - v / rateTop * kPlotHeight + 4) +
                tickLabel(v, rateStep) + "</text>\n";
    }
    *out += fmt("<text class=\"mid\" x=\"%.0f\" y=\"%.0f\">time (s)</text>\n", kPlotLeft + kPlotWidth / 2, bottom + 32);
    *out += fmt("<text class=\"mid\" transform=\"translate(%.0f,%.0f) rotate(-90)\">sample size (kB)</text>\n",
                kPlotLeft - 55, kPlotTop + kPlotHeight / 2);
    *out += fmt("<text class=\"mid\" transform=\"translate(%.0f,%.0f) rotate(90)\">bit rate (kbit/s)</text>\n",
                right + 60, kPlotTop + kPlotHeight / 2);

    const double barWidth = kPlotWidth / bins.size();
    for (size_t i = 0; i < bins.size(); ++i) {
        if (!bins[i].used) continue;
        double h = std::max(0.5, bins[i].max / 1000.0 / sizeTop * kPlotHeight);
        *out += fmt("<rect class=\"%s\" x=\"%.1f\" y=\"%.1f\" width=\"%.2f\" height=\"%.1f\"/>\n",
                    bins[i].key ? "bar key" : "bar", kPlotLeft + i * barWidth, bottom - h,
                    barWidth > 3 ? barWidth - 1 : barWidth, h);
    }
    *out += "<polyline class=\"rate\" points=\"";
    for (size_t w = 0; w < windowBytes.size(); ++w) {
        double y = bottom - windowBytes[w] * 8 / 1000 / windowSeconds(w) / rateTop * kPlotHeight;
        double x0 = xOf(lo + w * windowS), x1 = std::min(right, xOf(lo + (w + 1) * windowS));
        *out += fmt("%.1f,%.1f %.1f,%.1f ", x0, y, x1, y);
    }
    *out += "\"/>\n";
    for (int64_t t : seekUs) {
        double x = xOf(t / 1e6);
        *out += fmt("<line class=\"seek\" x1=\"%.1f\" y1=\"%.0f\" x2=\"%.1f\" y2=\"%.0f\"/>\n", x, kPlotTop, x, bottom);
    }
    *out += "</g>\n";
}

TimelineWriter::TimelineWriter(std::string path, std::string file) : mPath(std::move(path)), mFile(std::move(file)) {}
TimelineWriter::~TimelineWriter() = default;

ProbeSampleSink* TimelineWriter::addTrack(size_t index, const sp<MetaData>& format) {
    std::unique_ptr<Track> track(new Track);
    track->index = index;
    const char* mime = nullptr;
    int32_t width = 0, height = 0, rate = 0, channels = 0;
    int64_t durationUs = 0;
    track->title = fmt("track %zu: ", index);
    if (format == nullptr || !format->findCString(android::kKeyMIMEType, &mime)) mime = "(no MIME type)";
    track->title += mime;
    if (format != nullptr && format->findInt32(android::kKeyWidth, &width) &&
        format->findInt32(android::kKeyHeight, &height)) {
        track->title += fmt(", %dx%d", width, height);
    } else if (format != nullptr && format->findInt32(android::kKeySampleRate, &rate)) {
        track->title += fmt(", %d Hz", rate);
        if (format->findInt32(android::kKeyChannelCount, &channels)) track->title += fmt(", %d ch", channels);
    }
    if (format != nullptr && format->findInt64(android::kKeyDuration, &durationUs) && durationUs > 0) {
        track->durationUs = durationUs;
    }
    mTracks.push_back(std::move(track));
    return mTracks.back().get();
}

void TimelineWriter::addSeekPoints(size_t index, const sp<android::MediaExtractor>& extractor) {
    Track* track = nullptr;
    for (auto& t : mTracks) {
        if (t->index == index) track = t.get();
    }
    if (track == nullptr || track->samples.empty() || extractor == nullptr) return;
    // Seek targets from 0 (or the first sample) to the duration (or the last
    // sample); never below 0.
    int64_t lo = INT64_MAX, hi = 0;
    for (const Sample& s : track->samples) lo = std::min(lo, s.timeUs), hi = std::max(hi, s.timeUs);
    lo = track->durationUs > 0 ? 0 : std::max<int64_t>(lo, 0);
    hi = track->durationUs > 0 ? track->durationUs : std::max(hi, lo);
    sp<MediaSource> source = extractor->getTrack(index);
    if (source == nullptr || source->start() != android::OK) return;
    std::set<int64_t> landed;
    const double deadline = nowSeconds() + kSeekBudgetSeconds;
    int failures = 0;
    for (int k = 0; k < kSeekProbes && failures < kMaxSeekFailures && nowSeconds() < deadline; ++k) {
        int64_t target = clampToInt64(lo + (static_cast<double>(hi) - lo) * k / (kSeekProbes - 1));
        MediaSource::ReadOptions options;
        options.setSeekTo(std::min(std::max(target, lo), hi), MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC);
        MediaBuffer* buffer = nullptr;
        int64_t timeUs = 0;
        if (source->read(&buffer, &options) == android::OK && buffer != nullptr &&
            buffer->meta_data()->findInt64(android::kKeyTime, &timeUs)) {
            landed.insert(timeUs);
        } else {
            ++failures;
        }
        if (buffer != nullptr) buffer->release();
    }
    source->stop();
    track->seekUs.assign(landed.begin(), landed.end());
}

bool TimelineWriter::write(std::string* error) {
    double height = kHeaderHeight + kPanelHeight * mTracks.size();
    std::string svg = fmt("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" "
                          "width=\"%.0f\" height=\"%.0f\" viewBox=\"0 0 %.0f %.0f\">\n",
                          kPageWidth, height, kPageWidth, height);
    svg += kStyle;
    svg += fmt("<rect width=\"%.0f\" height=\"%.0f\" fill=\"#fff\"/>\n", kPageWidth, height);
    svg += "<text class=\"title\" x=\"10\" y=\"20\">zirk-probe timeline: " + escapeXml(mFile) + "</text>\n";
    svg += "<g transform=\"translate(10,32)\"><rect class=\"bar\" width=\"10\" height=\"10\"/>"
           "<text x=\"14\" y=\"10\">largest sample per bar</text><rect class=\"bar key\" x=\"170\" width=\"10\" "
           "height=\"10\"/><text x=\"184\" y=\"10\">bar holds a key frame</text><line class=\"rate\" x1=\"340\" "
           "y1=\"5\" x2=\"360\" y2=\"5\"/><text x=\"364\" y=\"10\">bit rate</text><line class=\"seek\" x1=\"440\" "
           "y1=\"0\" x2=\"440\" y2=\"12\"/><text x=\"446\" y=\"10\">where a seek lands</text></g>\n";
    for (size_t i = 0; i < mTracks.size(); ++i) mTracks[i]->draw(kHeaderHeight + kPanelHeight * i, &svg);
    svg += "</svg>\n";

    FILE* file = fopen(mPath.c_str(), "wb");
    if (file == nullptr) {
        *error = std::string("cannot create: ") + strerror(errno);
        return false;
    }
    bool ok = fwrite(svg.data(), 1, svg.size(), file) == svg.size();
    int err = errno;
    if (fclose(file) != 0 && ok) {
        ok = false;
        err = errno;
    }
    if (!ok) *error = std::string("cannot write: ") + strerror(err);
    return ok;
}

}  // namespace zirk_probe
