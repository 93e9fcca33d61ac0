// SPDX-License-Identifier: GPL-3.0-or-later
// The choice of export model for "Auto": the simplest of Translation,
// Rigid, Rigid & Scale and the mixed affine model whose residual moves no
// frame's diagonals by the admissible inaccuracy or more.
#pragma once

#include "base/enums.h"
#include "exchange/transformations.h"

// Looks at the raw per-frame matrices, neither composed with the initial
// transform nor inverted, whatever the task. The tolerance is
// max(ExportInaccuracy^2, 0.0001), so an inaccuracy of 0 still chooses.
// Returns Translation, Rigid, RigidScale or Affine3; never a skew-effect
// model nor CornerPin. With no frames: Translation.
//
// The rigid test compares with signs of the sine terms that are not those of
// a rotation; a clear rotation therefore fails it and is exported as Rigid &
// Scale. That decides how many parameters Auto exports: keep it so.
ExportModel ChooseExportModel(const Transformations& record, int width, int height);
