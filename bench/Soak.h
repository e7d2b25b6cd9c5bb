#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/// What was measured at one moment of a soak.
struct SoakSample {
  double Seconds;
  std::size_t ResidentKiB, Descriptors, Threads;
  std::size_t Wishes;                      ///< answered so far
  double StopMedian = 0, StopLongest = 0;  ///< milliseconds, since the sample before
};

/// Writes all samples as comma-separated values.
void WriteTable(const std::string& file, const std::vector<SoakSample>& samples);
/// Draws memory, descriptors and stop latency over time, as SVG.
void WritePicture(const std::string& file, const std::vector<SoakSample>& samples, const std::string& title);

/// By how much something grew from the second fifth of the samples to the last; the first is for warming up.
double Growth(const std::vector<SoakSample>& samples, std::size_t SoakSample::*of);
