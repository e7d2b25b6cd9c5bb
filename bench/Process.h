#pragma once

// What a process has of the system: this one, where none is named by its number.

#include <chrono>
#include <cstddef>
#include <string>

/// As many descriptors as the system allows.
void RaiseDescriptorLimit();

std::size_t ResidentKiB(const std::string& process = "self");
std::size_t OpenDescriptors(const std::string& process = "self");
std::size_t Threads(const std::string& process = "self");
/// Processor time of all its threads.
std::chrono::duration<double> ProcessorTime(const std::string& process = "self");
