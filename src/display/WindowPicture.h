#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/Outcome.h"

class QImage;

// Pictures of the program's own windows, kept beside the results of the
// sample they show.
namespace mervasto {

inline constexpr const char* kMainPictureSuffix = "_Main.jpg";
inline constexpr const char* kWavePictureSuffix = "_Wave.jpg";
inline constexpr int kPictureQuality = 50;

// dataFolder + separator + "Outputdata" + separator + sampleName + "_" +
// counter + suffix. sampleName is the sample number text followed by the
// sample index text; counter is the capture counter, which the caller
// increases after each press so successive pictures never overwrite each
// other.
std::string CaptureFileName(std::string_view dataFolder, std::string_view sampleName, int16_t counter,
                            std::string_view suffix);

// Writes the picture as JPEG (quality 50), replacing any file of that name:
// encoded in memory, then written whole through WriteFileReplacing. The file
// appears only when complete; nothing temporary is left behind. Fails with
// the file name and the reason when it could not be written (a name the file
// system refuses, a folder that is missing or read-only, a full disk).
Outcome SaveWindowPicture(const QImage& image, const std::string& fileName);

// The same for a plot, as PNG: lossless, so thin lines and texts stay sharp.
Outcome SavePlotPicture(const QImage& image, const std::string& fileName);

}  // namespace mervasto
