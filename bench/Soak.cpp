#include "Soak.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace {

std::ofstream Created(const std::string& file) {
  std::ofstream out(file);
  if (!out) throw std::runtime_error(file + " cannot be written");
  return out;
}

constexpr double Width = 720, Height = 120, Left = 70, Top = 50, Gap = 45;

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

/// One curve in a frame of its own, from 0 up.
struct Curve {
  const char* Name;
  const char* Colour;
  std::function<double(const SoakSample&)> Value;
};

void Draw(std::ostream& out, double top, const std::vector<SoakSample>& samples,
          const std::vector<Curve>& curves) {
  double most = 1;
  for (const auto& curve : curves)
    for (const auto& sample : samples) most = std::max(most, curve.Value(sample) * 1.05);
  const double length = std::max(samples.back().Seconds, 1.0);
  out << "<rect x='" << Left << "' y='" << top << "' width='" << Width << "' height='" << Height
      << "' fill='none' stroke='#888'/>\n";
  out << "<text x='" << Left - 6 << "' y='" << top + 10 << "' text-anchor='end'>" << Number(most)
      << "</text>\n";
  out << "<text x='" << Left - 6 << "' y='" << top + Height << "' text-anchor='end'>0</text>\n";
  double x = Left;
  for (const auto& curve : curves) {
    out << "<text x='" << x << "' y='" << top - 6 << "' fill='" << curve.Colour << "'>" << curve.Name
        << "</text>\n<polyline fill='none' stroke='" << curve.Colour << "' points='";
    for (const auto& sample : samples)
      out << Number(Left + Width * sample.Seconds / length) << ','
          << Number(top + Height - Height * curve.Value(sample) / most) << ' ';
    out << "'/>\n";
    x += Width / 2;
  }
}

}  // namespace

void WriteTable(const std::string& file, const std::vector<SoakSample>& samples) {
  auto out = Created(file);
  out << "seconds,resident_kib,descriptors,threads,wishes,stop_median_ms,stop_longest_ms\n";
  for (const auto& s : samples)
    out << s.Seconds << ',' << s.ResidentKiB << ',' << s.Descriptors << ',' << s.Threads << ',' << s.Wishes
        << ',' << s.StopMedian << ',' << s.StopLongest << '\n';
}

void WritePicture(const std::string& file, const std::vector<SoakSample>& samples, const std::string& title) {
  if (samples.empty()) throw std::runtime_error("nothing was measured that could be drawn");
  auto out = Created(file);
  const std::vector<std::vector<Curve>> frames = {
      {{"Resident memory, MiB", "#0057b8",
        [](const auto& s) { return static_cast<double>(s.ResidentKiB) / 1024; }}},
      {{"Descriptors", "#0057b8", [](const auto& s) { return static_cast<double>(s.Descriptors); }},
       {"Threads", "#c04000", [](const auto& s) { return static_cast<double>(s.Threads); }}},
      {{"Stop, median, ms", "#0057b8", [](const auto& s) { return s.StopMedian; }}},
      {{"Stop, longest, ms", "#c04000", [](const auto& s) { return s.StopLongest; }}},
  };
  const double height = Top + static_cast<double>(frames.size()) * (Height + Gap);
  out << "<svg xmlns='http://www.w3.org/2000/svg' width='" << Left + Width + 20 << "' height='" << height
      << "' font-family='sans-serif' font-size='12'>\n<rect width='100%' height='100%' fill='white'/>\n"
      << "<text x='" << Left << "' y='20' font-size='14'>" << title << "</text>\n";
  double top = Top;
  for (const auto& frame : frames) {
    Draw(out, top, samples, frame);
    top += Height + Gap;
  }
  out << "<text x='" << Left + Width << "' y='" << height - 22 << "' text-anchor='end'>"
      << Number(samples.back().Seconds / 60) << " minutes</text>\n</svg>\n";
}

double Growth(const std::vector<SoakSample>& samples, std::size_t SoakSample::*of) {
  const auto median = [&](std::size_t fifth) {
    std::vector<std::size_t> values;
    for (std::size_t i = samples.size() * fifth / 5; i < samples.size() * (fifth + 1) / 5; ++i)
      values.push_back(samples[i].*of);
    if (values.empty()) throw std::runtime_error("too short to tell whether anything grows");
    std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
    return static_cast<double>(values[values.size() / 2]);
  };
  return median(4) / median(1) - 1;
}
