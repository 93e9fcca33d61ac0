// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/xml_filter.h"

#include <locale>

namespace xml {

namespace detail {

streams::streams(bool round) : round_trip(round) {
  // The user's locale must never reach a file: "1,5" would not read back
  // on another machine.
  out.imbue(std::locale::classic());
  in.imbue(std::locale::classic());
}

}  // namespace detail

filter::filter(node element, bool reading, Numbers numbers)
    : node(element),
      reading_(reading),
      own_(std::make_unique<detail::streams>(numbers == Numbers::RoundTrip)),
      streams_(own_.get()) {}

filter::filter(node element, bool reading, detail::streams* shared)
    : node(element), reading_(reading), streams_(shared) {}

filter::filter(filter&&) noexcept = default;
filter::~filter() = default;

filter filter::Sub(std::string_view name) {
  return filter(reading_ ? Child(name) : addChild(name), reading_, streams_);
}

}  // namespace xml
