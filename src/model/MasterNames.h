#pragma once
// The names masters are given: one rule for the save panel, the batch, the multi-master and the
// command line, written with a decimal point whatever the user's locale.
#include <QString>
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

// How a file name (the file system's bytes) is shown: as UTF-8 when it is, else as Latin-1, the
// encoding old disks and archives used, rather than replacement marks.
QString displayName(const std::string& bytes);

}  // namespace velmora
