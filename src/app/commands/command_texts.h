// SPDX-License-Identifier: GPL-3.0-or-later
// The fixed words of the File, Edit and Segment commands: operation names
// for failure reports, questions, notices and file dialogs. They are the
// program's own words and must not change by a byte.
#pragma once

#include <cstddef>
#include <string>

#include "app/ports.h"

namespace app {

// Names pushed on the operation stack.
inline constexpr const char* kOpeningProject = "opening project";
inline constexpr const char* kSavingProject = "saving project";
inline constexpr const char* kLoadingSequence = "loading sequence";
inline constexpr const char* kImportingMask = "importing mask";
inline constexpr const char* kImportingOverlay = "importing overlay";
inline constexpr const char* kExportingMask = "exporting mask";
inline constexpr const char* kExportingTransformations = "exporting transformations";
inline constexpr const char* kCopyingToClipboard = "copying data into the clipboard";

// Close Project: OK / Cancel, warning icon.
inline constexpr const char* kCloseCancelsProcessing =
    "Closing the project will cancel all current processing.\nClose anyway?";
// Close Project: Yes / No / Cancel, warning icon.
inline constexpr const char* kSaveChangesQuestion =
    "The project has been modified.\nDo you want to save the changes?";
// Import Overlay: OK / Cancel, warning icon.
inline constexpr const char* kOverlayDimensionsQuestion =
    "Dimensions of the overlay differ from composition dimensions.\nProceed?";
inline constexpr const char* kStillOverlayImported = "Still overlay imported.";

// Import Mask, a mask with no pixel of one colour: "white" when none is set,
// "black" when all are. OK / Cancel, warning icon.
std::string EmptyMaskQuestion(const std::string& path, const char* colour);
// Import Mask, a mask of another size than the composition. OK / Cancel,
// warning icon.
std::string MaskDimensionsQuestion(const std::string& path);
// A mask that, cut to the composition's size, is empty or full.
std::string CroppedMaskRefusal(const std::string& path, const char* colour);
// Import Overlay's closing notice: the still text for one frame.
std::string OverlayImportedNotice(size_t frames);
// Import Overlay with "Force Static Overlay" when the file's size cannot be read.
std::string CouldNotReadFile(const std::string& path);

// Dialog filters. `patterns` is the image codecs' pattern list ("*.BMP;...").
std::string OpenFilter(const std::string& patterns);
std::string AviFilter(const std::string& patterns);

// The file dialogs of the commands, with title, filter, default extension
// and options.
FileChoice OpenProjectChoice();
FileChoice SaveProjectAsChoice();
FileChoice OpenSequenceChoice(const std::string& open_filter);
FileChoice ImportMaskChoice();
FileChoice ExportMaskChoice();
FileChoice ImportOverlayChoice(const std::string& open_filter);
FileChoice ExportTransformsChoice();

class OperationStack;

// Every line feed becomes carriage return plus line feed: the clipboard's
// readers expect that.
std::string ClipboardText(const std::string& text);
// Puts ClipboardText(text) on the clipboard under "copying data into the
// clipboard". When the clipboard cannot be opened it returns false and the
// stack is as before; an exception leaves the name for the report.
bool CopyToClipboard(Clipboard& clipboard, OperationStack& operations, const std::string& text);

}  // namespace app
