#pragma once

// What this process has of the system.

#include <chrono>
#include <cstddef>

/// As many descriptors as the system allows.
void RaiseDescriptorLimit();

std::size_t ResidentKiB();
std::size_t OpenDescriptors();
std::size_t Threads();
/// Processor time of all its threads.
std::chrono::duration<double> ProcessorTime();
