// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/multi_io.h"

#include <algorithm>
#include <stdexcept>

#include "imaging/library_io.h"
#include "imaging/native_io.h"

namespace img {

namespace {

template <class Member>
void union_extensions(const std::vector<std::unique_ptr<Member>>& members,
                      std::vector<std::string>& out) {
  out.clear();
  std::vector<std::string> one;
  for (const auto& m : members) {
    m->extensions(one);
    for (auto& ext : one)
      if (std::find(out.begin(), out.end(), ext) == out.end()) out.push_back(ext);
  }
}

template <class Member>
std::string joined_filter(const std::vector<std::unique_ptr<Member>>& members) {
  std::vector<std::string> all, one;
  for (const auto& m : members) {
    m->extensions(one);
    all.insert(all.end(), one.begin(), one.end());
  }
  return make_filter(all);
}

template <class Ask>
bool ask_members(const std::vector<std::unique_ptr<image_reader>>& members, Ask ask) {
  for (size_t i = 0; i < members.size(); ++i) {
    if (i + 1 == members.size()) return ask(*members[i]);
    try {
      if (ask(*members[i])) return true;
    } catch (const io_error&) {
      // This member cannot read the file; the next one may.
    }
  }
  return false;
}

// Whether a member that is not the last takes the file: one that does not
// sniff takes everything; one that does takes what its info() accepts.
template <class Info>
bool claims(const image_reader& member, Info info) {
  if (!member.sniffs()) return true;
  try {
    return info();
  } catch (const io_error&) {
    return false;
  }
}

}  // namespace

multi_reader::multi_reader() {
  members_.push_back(std::make_unique<native_reader>());
  members_.push_back(std::make_unique<library_reader>());
}

multi_reader::multi_reader(std::vector<std::unique_ptr<image_reader>> members)
    : members_(std::move(members)) {
  if (members_.empty()) throw std::invalid_argument("multi_reader needs at least one member");
}

multi_reader::~multi_reader() = default;

void multi_reader::extensions(std::vector<std::string>& out) const {
  union_extensions(members_, out);
}

std::string multi_reader::filter() const {
  return joined_filter(members_);
}

bool multi_reader::info(const std::string& name, const std::string& format, file_info* info) {
  return ask_members(members_, [&](image_reader& m) { return m.info(name, format, info); });
}

bool multi_reader::info(const std::string& name, file_info* info) {
  return ask_members(members_, [&](image_reader& m) { return m.info(name, info); });
}

void multi_reader::read(const std::string& name, const std::string& format, image& out) {
  for (size_t i = 0; i + 1 < members_.size(); ++i) {
    image_reader& m = *members_[i];
    if (claims(m, [&] { return m.info(name, format, nullptr); })) return m.read(name, format, out);
  }
  members_.back()->read(name, format, out);
}

void multi_reader::read(const std::string& name, image& out) {
  for (size_t i = 0; i + 1 < members_.size(); ++i) {
    image_reader& m = *members_[i];
    if (claims(m, [&] { return m.info(name, nullptr); })) return m.read(name, out);
  }
  members_.back()->read(name, out);
}

multi_writer::multi_writer() {
  members_.push_back(std::make_unique<native_writer>());
  members_.push_back(std::make_unique<library_writer>());
}

multi_writer::multi_writer(std::vector<std::unique_ptr<image_writer>> members)
    : members_(std::move(members)) {
  if (members_.empty()) throw std::invalid_argument("multi_writer needs at least one member");
}

multi_writer::~multi_writer() = default;

void multi_writer::extensions(std::vector<std::string>& out) const {
  union_extensions(members_, out);
}

std::string multi_writer::filter() const {
  return joined_filter(members_);
}

uint64_t multi_writer::write(const std::string& name,
                             const std::string& format,
                             const image& picture,
                             bool with_alpha) {
  for (size_t i = 0; i + 1 < members_.size(); ++i) {
    try {
      return members_[i]->write(name, format, picture, with_alpha);
    } catch (const io_error&) {
      // Not this member's format (or it failed): the next one tries.
    }
  }
  return members_.back()->write(name, format, picture, with_alpha);
}

}  // namespace img
