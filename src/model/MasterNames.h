#pragma once
// The names masters are given: one rule for the save panel, the batch, the multi-master and the
// command line, written with a decimal point whatever the user's locale.
#include <optional>
#include <string>
#include <string_view>

#include "mastering/MasterParams.h"

namespace velmora {

// The target as a name shows it, as "%g" would in the C locale: -14 → "-14", -16.5 → "-16.5".
std::string targetForName(double targetLUFS);

// "<stem>_master_-23LUFS.wav", or "<stem>_corrige_-16.5LUFS_LRA7.aif" in conform mode for a
// source with a loudness range (rounded to whole LU); the stem is the source's file name
// without its last extension.
std::string masterFileName(std::string_view sourceName, ProcessMode mode, double targetLUFS,
                           std::optional<double> sourceLRA, std::string_view extension);

// "<stem>_master_<tag>.<extension>": one master per norm, named after the norm's tag.
std::string multiMasterFileName(std::string_view sourceName, int presetIndex, std::string_view extension);

}  // namespace velmora
