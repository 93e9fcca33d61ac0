// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/transformations.h"

Transformations::Transformations(const Transformations& other)
    : InitialTransform(other.InitialTransform),
      ExportInaccuracy(other.ExportInaccuracy),
      Task(other.Task),
      ExportModel(other.ExportModel),
      first(other.first),
      transform_(other.IsOwning() ? &own_ : other.transform_),
      own_(other.own_) {}

Transformations& Transformations::operator=(const Transformations& other) {
  if (this == &other) return *this;
  InitialTransform = other.InitialTransform;
  ExportInaccuracy = other.ExportInaccuracy;
  Task = other.Task;
  ExportModel = other.ExportModel;
  first = other.first;
  own_ = other.own_;
  transform_ = other.IsOwning() ? &own_ : other.transform_;
  return *this;
}

std::vector<types::affine>& Transformations::Own() {
  transform_ = &own_;
  return own_;
}
