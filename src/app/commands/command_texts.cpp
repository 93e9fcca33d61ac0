// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/command_texts.h"

#include "app/operation_stack.h"

namespace app {
namespace {

constexpr const char* kProjectFilter = "Velomar Project (*.vlp)|*.vlp||";
constexpr const char* kBitmapFilter = "Bitmap Files (*.bmp)|*.bmp||";

// The save dialogs all ask before replacing a file and want an existing folder.
FileChoice SaveChoice(const char* title, const char* filter, const char* extension) {
  FileChoice choice;
  choice.title = title;
  choice.filter = filter;
  choice.default_extension = extension;
  choice.overwrite_prompt = true;
  choice.path_must_exist = true;
  return choice;
}

FileChoice OpenChoice(const char* title, const std::string& filter, const char* extension) {
  FileChoice choice;
  choice.title = title;
  choice.filter = filter;
  choice.default_extension = extension;
  choice.must_exist = true;
  return choice;
}

}  // namespace

std::string EmptyMaskQuestion(const std::string& path, const char* colour) {
  return "Bitmap (" + path + ") contains no " + colour + " pixels.\nProceed?";
}

std::string MaskDimensionsQuestion(const std::string& path) {
  return "Dimensions of the bitmap (" + path + ") differ from composition dimensions.\nProceed?";
}

std::string CroppedMaskRefusal(const std::string& path, const char* colour) {
  return "Bitmap (" + path + ") has no " + colour +
         " pixels inside the composition's frame once cut to its size";
}

std::string OverlayImportedNotice(size_t frames) {
  if (frames == 1) return kStillOverlayImported;
  return "Overlay sequence of " + std::to_string(frames) + " frames imported.";
}

std::string CouldNotReadFile(const std::string& path) {
  return "could not read file: " + path;
}

std::string OpenFilter(const std::string& patterns) {
  return "Image Files (" + patterns + ")|" + patterns +
         "|ACDSee Sequence (*.ais)|*.ais|All Files (*.*)|*.*||";
}

std::string AviFilter(const std::string& patterns) {
  return "Image Files (" + patterns + ")|" + patterns +
         "|AVI Sequence (*.avi)|*.avi|All Files (*.*)|*.*||";
}

FileChoice OpenProjectChoice() {
  return OpenChoice("Open Project", kProjectFilter, "vlp");
}

FileChoice SaveProjectAsChoice() {
  return SaveChoice("Save Project As", kProjectFilter, "vlp");
}

FileChoice OpenSequenceChoice(const std::string& open_filter) {
  return OpenChoice("Open Sequence", open_filter, "bmp");
}

FileChoice ImportMaskChoice() {
  return OpenChoice("Import Mask", kBitmapFilter, "bmp");
}

FileChoice ExportMaskChoice() {
  return SaveChoice("Export Mask", kBitmapFilter, "bmp");
}

FileChoice ImportOverlayChoice(const std::string& open_filter) {
  FileChoice choice = OpenChoice("Import Overlay", open_filter, "bmp");
  choice.check_box = "Force Static Overlay";
  return choice;
}

FileChoice ExportTransformsChoice() {
  return SaveChoice("Export Transformations", "Text Files (*.txt)|*.txt|All Files (*.*)|*.*||",
                    "txt");
}

std::string ClipboardText(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
}

bool CopyToClipboard(Clipboard& clipboard, OperationStack& operations, const std::string& text) {
  const std::string converted = ClipboardText(text);
  operations.push(kCopyingToClipboard);
  const bool copied = clipboard.set_text(converted);
  operations.pop();
  return copied;
}

}  // namespace app
