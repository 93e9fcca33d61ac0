// SPDX-License-Identifier: GPL-3.0-or-later
// A project file as outside input, read all the way into a composition.
//
// Each input is used twice: as a whole document, and as an edit of a valid
// saved project (the first two bytes pick an attribute, the rest becomes its
// value; an odd pick removes it), since arbitrary bytes rarely name frames
// that exist. Whatever loads must save, load and save again to the same
// text. The overlay question is answered OK; masks are capped well under
// the fuzzer's memory limit.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "app/scripted_dialogs.h"
#include "fuzz_target.h"
#include "imaging/native_io.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMaxMaskPixels = 1 << 20;

// Frames for the valid project, in a folder of this process.
struct Shot {
  fs::path dir = fs::temp_directory_path() / ("velomar-fuzz-project-" + std::to_string(getpid()));
  std::string project = (dir / "fuzz.vlp").string();
  std::string valid;

  Shot() {
    fs::create_directories(dir);
    const std::string under = Write("under.bmp", 8, 6, false), over = Write("over.bmp", 4, 3, true);
    app::OperationStack operations;
    VLComp comp(operations);
    comp.hooks.purgeCache = [] {};
    comp.LoadSequence(std::vector<std::string>(12, under), 25, {0, 1}, 0);
    comp.SetCurrentTime(4);
    comp.GetOverlay().ImportDirect({over, over, over}, false);
    comp.GetInterface().CreateSegment(5, false);
    VLSegment& s = comp.GetSegmentObject(0);
    auto data = std::make_shared<VLSegmentData>();
    for (int i = 0; i < 4; ++i) {
      data->Append(VLSegmentData::Direction::Forward, types::affine::translation(0.5 * i, -i));
      data->Append(VLSegmentData::Direction::Backward, {0, 0, 1, 0.01 * i, 0, 1});
    }
    s.ReplaceData(data);
    VL::Mask mask(8, 6);
    mask.rows[1][0] = 0x7E;
    s.SetMaskDirect(mask);
    s.GetTiming().root().child("flow").child("fit").calls_count = 2;
    valid = app::ProjectFileText(comp, project);
  }
  ~Shot() {
    std::error_code ignored;
    fs::remove_all(dir, ignored);
  }

  std::string Write(const std::string& name, uint32_t w, uint32_t h, bool alpha) {
    img::image picture(w, h);
    std::fill(picture.data, picture.data + picture.size, uint8_t(90));
    img::native_writer().write((dir / name).string(), "BMP", picture, alpha);
    return (dir / name).string();
  }
};

Shot& TheShot() {
  static Shot shot;
  return shot;
}

// Loads `text`; false when it fails, which malformed input must do with an
// exception and no project left.
bool Load(VLComp& comp, app::ScriptedDialogs& dialogs, std::string_view text) {
  try {
    app::LoadProjectText(comp, TheShot().project, text, dialogs, kMaxMaskPixels);
    return true;
  } catch (const std::exception&) {
    if (!comp.IsEmpty() || comp.GetSegmentCount() != 0) __builtin_trap();
    return false;
  }
}

void LoadAndRoundTrip(std::string_view text) {
  app::OperationStack operations;
  app::ScriptedDialogs dialogs(app::ScriptedDialogs::Mode::Affirmative);
  VLComp comp(operations, &dialogs);
  comp.hooks.purgeCache = [] {};
  if (!Load(comp, dialogs, text)) return;
  // A frame path that names a folder ("//", "/tmp/") exists, so it loads,
  // but folders have no canonical file name to store relative to: saving
  // may spell them otherwise. Such a frame fails when it is fetched; only
  // projects of real files must come back to the letter.
  auto all_files = [](const std::vector<std::string>& paths) {
    for (const auto& p : paths) {
      std::error_code ec;
      if (!std::filesystem::is_regular_file(p, ec)) return false;
    }
    return true;
  };
  if (!all_files(comp.GetUnderlay()) || !all_files(comp.GetOverlay().GetPaths())) return;
  const std::string saved = app::ProjectFileText(comp, TheShot().project);
  VLComp again(operations, &dialogs);
  again.hooks.purgeCache = [] {};
  if (!Load(again, dialogs, saved)) __builtin_trap();
  if (app::ProjectFileText(again, TheShot().project) != saved) __builtin_trap();
}

// The valid project with one attribute's value replaced or removed.
std::string Edited(const uint8_t* data, size_t size) {
  std::string text = TheShot().valid;
  size_t count = 0;
  for (size_t at = text.find("=\""); at != std::string::npos; at = text.find("=\"", at + 2))
    ++count;
  const unsigned pick = data[0] | unsigned(data[1]) << 8;
  size_t at = text.find("=\"");
  for (size_t i = (pick >> 1) % count; i > 0; --i) at = text.find("=\"", at + 2);
  const size_t end = text.find('"', at + 2);
  if (pick & 1) {
    const size_t name = text.rfind(' ', at);
    return text.erase(name, end + 1 - name);
  }
  std::string value;
  for (size_t i = 2; i < size; ++i) {
    const char c = char(data[i]);
    value += c == '"'   ? std::string("&quot;")
             : c == '<' ? "&lt;"
             : c == '&' ? "&amp;"
                        : std::string(1, c);
  }
  return text.replace(at + 2, end - at - 2, value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  LoadAndRoundTrip(std::string_view(reinterpret_cast<const char*>(data), size));
  if (size >= 2) LoadAndRoundTrip(Edited(data, size));
  return 0;
}

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  auto bytes = [](std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); };
  const std::string& valid = TheShot().valid;
  std::vector<std::vector<uint8_t>> seeds{bytes(valid)};
  // Found by the fuzzer: the first frame's path edited to "//", a folder.
  seeds.push_back(bytes(std::string_view("\x18\x18//", 4)));
  // Edits of the valid project: each attribute replaced, a few removed.
  for (unsigned pick = 0; pick < 120; pick += 2) seeds.push_back({uint8_t(pick), 0, '-', '1'});
  for (unsigned pick = 1; pick < 40; pick += 6) seeds.push_back({uint8_t(pick), 0});
  seeds.push_back(bytes("<Velomar CurrentTime=\"0\"><Underlay path=\"/\"/></Velomar>"));
  return seeds;
}
