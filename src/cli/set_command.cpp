// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli set: the composition's and the overlay's settings, each one
// as one undo step (so through the setters' clamps), as the property panel
// changes them. Keys and value forms are those of
// info --json, so that what info prints can be given back.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "app/model/setting_tables.h"
#include "base/enums.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/project_session.h"

namespace cli {

namespace {

UsageError Malformed(const std::string& key, const std::string& form, const std::string& text) {
  return UsageError(key + " needs " + form + ", not '" + text + "'");
}

template <class N>
N Number(const std::string& key, const std::string& form, const std::string& text) {
  N value{};
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end) throw Malformed(key, form, text);
  if constexpr (std::is_floating_point_v<N>)
    if (!std::isfinite(value)) throw Malformed(key, form, text);
  return value;
}

// Splits at the first of `separators`; both parts must be there.
std::pair<std::string, std::string> Pair(const std::string& key,
                                         const std::string& form,
                                         const std::string& text,
                                         const char* separators) {
  const auto at = text.find_first_of(separators);
  if (at == std::string::npos) throw Malformed(key, form, text);
  return {text.substr(0, at), text.substr(at + 1)};
}

My::Span Span(const std::string& key, const std::string& text) {
  const char* form = "FIRST:LAST (LAST one past the last)";
  const auto [first, last] = Pair(key, form, text, ":");
  return {Number<int32_t>(key, form, first), Number<int32_t>(key, form, last)};
}

template <class E>
E Word(const std::string& key, const std::string& text) {
  if (const auto value = FromFileWord<E>(text)) return *value;
  std::string words;
  for (const auto& row : EnumTable<E>()) words += std::string(words.empty() ? "" : ", ") + row.word;
  throw Malformed(key, "one of " + words, text);
}

PixelAspectRatio Aspect(const std::string& key, const char* form, const std::string& text) {
  const auto [num, den] = Pair(key, form, text, "/:");
  PixelAspectRatio aspect{Number<int32_t>(key, form, num), Number<int32_t>(key, form, den)};
  // The setter would ignore such a ratio without a word; a script must hear of it.
  if (aspect.num <= 0 || aspect.den <= 0) throw Malformed(key, form, text);
  return aspect;
}

types::affine Transform(const std::string& key, const char* form, const std::string& text) {
  double v[6];
  size_t from = 0;
  for (int i = 0; i < 6; ++i) {
    const size_t comma = i < 5 ? text.find(',', from) : text.size();
    if (comma == std::string::npos) throw Malformed(key, form, text);
    v[i] = Number<double>(key, form, text.substr(from, comma - from));
    from = comma + 1;
  }
  types::affine t;
  t.xx = v[0];
  t.xy = v[1];
  t.yx = v[2];
  t.yy = v[3];
  t.x = v[4];
  t.y = v[5];
  return t;
}

// The value `text` gives for a setting of the type of `current`.
app::SettingValue Parse(const app::SettingValue& current,
                        const std::string& key,
                        const char* form,
                        const std::string& text) {
  return std::visit(
      [&](const auto& now) -> app::SettingValue {
        using T = std::decay_t<decltype(now)>;
        if constexpr (std::is_same_v<T, uint32_t> || std::is_same_v<T, int32_t>)
          return Number<T>(key, form ? form : "a whole number", text);
        else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
          return Number<T>(key, form ? form : "a number", text);
        else if constexpr (std::is_same_v<T, My::Span>)
          return Span(key, text);
        else if constexpr (std::is_same_v<T, PixelAspectRatio>)
          return Aspect(key, form, text);
        else if constexpr (std::is_same_v<T, types::affine>)
          return Transform(key, form, text);
        else if constexpr (std::is_same_v<T, Still>)
          throw std::logic_error(key + " is read only");
        else
          return Word<T>(key, text);
      },
      current);
}

// A requested change: a row of one of the two tables, and its text.
struct Change {
  const app::CompSetting* comp = nullptr;
  const app::OverlaySetting* overlay = nullptr;
  std::string text;
  const char* key() const { return comp ? comp->names().key : overlay->names().key; }
};

Change Find(const std::string& key, std::string text) {
  std::string keys;
  for (const auto* row : app::CompSettings()) {
    if (row->IsReadOnly()) continue;
    if (key == row->names().key) return {row, nullptr, std::move(text)};
    keys += std::string(keys.empty() ? "" : ", ") + row->names().key;
  }
  for (const auto* row : app::OverlaySettings()) {
    if (row->IsReadOnly()) continue;
    if (key == row->names().key) return {nullptr, row, std::move(text)};
    keys += std::string(keys.empty() ? "" : ", ") + row->names().key;
  }
  throw UsageError("unknown setting '" + key + "' (known: " + keys + ")");
}

}  // namespace

int RunSet(const std::vector<std::string>& args) {
  Options options(args, {"--json"}, {});
  const bool json = options.flag("--json");
  const auto& pos = options.positional();
  if (pos.size() < 2) throw UsageError("set needs PROJECT and at least one KEY=VALUE");
  // Unknown keys fail before the project is read; values as they are applied.
  std::vector<Change> changes;
  for (size_t i = 1; i < pos.size(); ++i) {
    const auto eq = pos[i].find('=');
    if (eq == std::string::npos) throw UsageError("'" + pos[i] + "' is no KEY=VALUE");
    changes.push_back(Find(pos[i].substr(0, eq), pos[i].substr(eq + 1)));
  }
  ProjectSession session(false);
  return session.Run(
      [&] {
        session.Open(pos[0]);
        VLComp& comp = session.comp();
        for (const Change& change : changes) {
          const std::string key = change.key();
          if (change.comp) {
            app::SettingValue value =
                Parse(change.comp->Get(comp), key, change.comp->names().form, change.text);
            if (change.comp->names().frames) value = app::ShiftFrames(value, -comp.GetStartFrame());
            app::ChangeSetting(comp, key, value);
            continue;
          }
          VLOverlay& overlay = comp.GetOverlay();
          if (overlay.IsEmpty())
            throw std::runtime_error("the project has no overlay to set " + key +
                                     " of: import one first");
          app::SettingValue value =
              Parse(change.overlay->Get(overlay), key, change.overlay->names().form, change.text);
          if (change.overlay->names().frames)
            value = app::ShiftFrames(value, -comp.GetStartFrame());
          app::ChangeSetting(overlay, comp.GetActionQueue(), key, value);
        }
        // One save when every change is in; a failure above leaves the file as it was.
        session.app().OnSave();
        if (json) std::printf("{\"project\": %s}\n", JsonQuote(pos[0]).c_str());
      },
      json, "changing settings");
}

const Command kSetCommand = {
    "set", "change a project's settings",
    "usage: velomar-cli set PROJECT.vlp KEY=VALUE... [--json]\n"
    "\n"
    "Changes the settings of the project and of its overlay, in the order\n"
    "given, and saves the project once when all of them are in. Keys and\n"
    "values are those info --json prints:\n"
    "  framerate=FPS (25, 29.97, ...)  start_frame=N  export_inaccuracy=PIXELS\n"
    "  work_area=FIRST:LAST  pixel_aspect=NUM/DEN (or NUM:DEN)\n"
    "  task=WORD  export_model=WORD\n"
    "and, for a project with an overlay:\n"
    "  source_offset=N  trimming=FIRST:LAST  match=FRAME\n"
    "  alignment=WORD  alpha=WORD  initial_transform=xx,xy,yx,yy,x,y\n"
    "Frames are numbered as info prints them (the start frame is the number\n"
    "of the first frame); a span's LAST is one past its last frame. Values out of range are "
    "clamped as the program clamps them\n"
    "(a frame rate of at least 1, spans inside the frames, ...). An unknown\n"
    "key or a malformed value fails the command and nothing is saved.\n",
    RunSet};

}  // namespace cli
