// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/transform_applicator.h"

#include "exchange/auto_model.h"
#include "exchange/corner_pin_applicator.h"
#include "exchange/decompositions.h"
#include "exchange/motion_applicators.h"
#include "exchange/transform_effect_applicators.h"

TransformApplicator::~TransformApplicator() = default;

types::affine TransformApplicator::TransformOf(int frame) const {
  return FrameTransform(record_->GetTransforms()[frame - record_->first], record_->InitialTransform,
                        record_->Task);
}

int TransformApplicator::FrameCount() const {
  return storage_->GetEndFrame() - storage_->GetFirstFrame();
}

std::unique_ptr<TransformApplicator> CreateTransformApplicator(const Transformations& record,
                                                               int width,
                                                               int height) {
  ExportModel model = record.ExportModel;
  if (model == ExportModel::Auto) model = ChooseExportModel(record, width, height);
  switch (model) {
    case ExportModel::Translation:
      return std::make_unique<TranslationApplicator>();
    case ExportModel::Rigid:
      return std::make_unique<RigidApplicator>();
    case ExportModel::RigidScale:
      return std::make_unique<RigidScaleApplicator>();
    case ExportModel::Affine1:
      return std::make_unique<VerticalSkewApplicator>();
    case ExportModel::Affine2:
      return std::make_unique<UniformScaleApplicator>();
    case ExportModel::Affine3:
      return std::make_unique<MixedTransformApplicator>();
    case ExportModel::CornerPin:
      return std::make_unique<CornerPinApplicator>();
    case ExportModel::Auto:
      break;
  }
  return nullptr;
}
