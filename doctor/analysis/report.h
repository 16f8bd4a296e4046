#pragma once

#include <string>
#include <vector>

#include "doctor/analysis/analysis.h"

namespace Doctor {

/// The verdict and the story in words, for a terminal.
std::string TextReport(const std::vector<Machine>& machines);

/// The same and more as JSON; docs/doctor.md describes it.
std::string JsonReport(const std::vector<Machine>& machines);

/// The lanes as a picture: an SVG with a legend, light or dark as its reader's system is.
std::string PictureReport(const std::vector<Machine>& machines);

/// A text from a log without what could steer a terminal or break a line, as whole UTF-8.
std::string Harmless(std::string_view text);

}  // namespace Doctor
