// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/frame_record.h"

#include <stdexcept>

namespace {

constexpr const char* kFrame = "Frame";

}  // namespace

void FrameRecordFields(xml::filter& f, FrameRecord& record) {
  f.defaulted("path", record.path, std::string());
  f.defaulted("abs", record.abs, false);
}

FrameRecord MakeFrameRecord(std::string_view path, std::string_view base, PathPolicy policy) {
  if (base.empty() || !SameDrive(base, path)) return {std::string(path), true};
  return {RelativePath(path, base, policy), false};
}

std::string ResolveFrameRecord(const FrameRecord& record,
                               std::string_view base,
                               PathPolicy policy) {
  if (record.abs) {
    if (!FileExists(record.path)) throw std::runtime_error("path does not exist - " + record.path);
    return record.path;
  }
  if (base.empty()) throw std::runtime_error("absolute path expected");
  std::string result = CombinePath(record.path, base, policy);
  if (!FileExists(result))
    throw std::runtime_error("path does not exist - " + result + "\n(base path is " +
                             std::string(base) + ", relative path is " + record.path + ")");
  return result;
}

void SequenceFields(xml::filter& f,
                    std::vector<std::string>& frames,
                    std::string_view base,
                    PathPolicy policy) {
  if (!f.reading()) {
    if (frames.empty()) return;
    const std::string folder = Directory(frames.front());
    FrameRecord record = MakeFrameRecord(folder, base, policy);
    FrameRecordFields(f, record);
    for (const std::string& frame : frames) {
      xml::filter inner = f.Sub(kFrame);
      FrameRecord entry = MakeFrameRecord(frame, folder, policy);
      FrameRecordFields(inner, entry);
    }
    return;
  }
  FrameRecord record;
  FrameRecordFields(f, record);
  if (base.empty() && record.path.empty()) return;
  const std::string folder = ResolveFrameRecord(record, base, policy);
  std::vector<FrameRecord> entries;
  f.list(kFrame, entries, FrameRecordFields);
  std::vector<std::string> resolved;
  resolved.reserve(entries.size());
  for (const FrameRecord& entry : entries)
    resolved.push_back(ResolveFrameRecord(entry, folder, policy));
  frames = std::move(resolved);
}
