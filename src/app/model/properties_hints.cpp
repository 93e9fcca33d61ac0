// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/properties_hints.h"

#include "app/model/properties_parse.h"

namespace app::hints {
namespace {

// One piece of a hint in both languages. The English words are the
// program's own and must not change by a byte; "After Effects ®" and the
// oddities of spelling are part of them.
struct Piece {
  const char* en;
  const char* ru;
};

std::string In(HintLanguage language, const Piece& piece) {
  return language == HintLanguage::Russian ? piece.ru : piece.en;
}

// Composition.

constexpr Piece kFramerate{
    "Intrinsic rate of frames in composition. To change preview rate use Time Controls instead",
    "Собственная частота кадров композиции. Чтобы изменить частоту кадров при просмотре, "
    "используйте вместо этого Time Controls"};

constexpr Piece kPixelAspect{
    "Chooses proportions of rectangular pixels. The parameter is used for passing into After "
    "Effects ® only",
    "Задаёт пропорции прямоугольных пикселей. Параметр нужен только для передачи в After "
    "Effects ®"};

constexpr Piece kStartFrame{"Number assigned to the first frame in composition",
                            "Номер, присвоенный первому кадру композиции"};

constexpr Piece kWorkArea{"Work area of the composition", "Рабочая область композиции"};

constexpr Piece kExport{
    "The choice of these parameters affects only the way data are exported from Velomar and has "
    "no visible consequences for the video data loaded to Velomar",
    "Эти параметры влияют только на то, как данные экспортируются из Velomar, и никак не "
    "сказываются на видеоданных, загруженных в Velomar"};

constexpr Piece kTaskLead{
    "The parameter determines subsequent actions with found motion of masked area. In current "
    "state '",
    "Параметр определяет, как будет использовано найденное движение области под маской. В "
    "текущем режиме '"};
constexpr Piece kTaskCompensation{
    "Motion Compensation' the underlay is affected by inverse transformations so that masked "
    "area on any frame as exactly as possible coincides with masked area on match frame",
    "Motion Compensation' к подложке применяются обратные преобразования, так что область под "
    "маской на любом кадре максимально точно совпадает с той же областью на кадре совмещения"};
constexpr Piece kTaskTracking{
    "Motion Tracking' an overlay is given same motion in order to look accurately glued above "
    "mobile underlay",
    "Motion Tracking' накладываемому слою придаётся то же движение, чтобы он выглядел точно "
    "приклеенным к движущейся подложке"};

constexpr Piece kInaccuracyLead{
    "Admissible inaccuracy (in pixels) for transformations loading in After Effects ®. Larger "
    "value here allows saving on the number of key frames in After Effects ® required for motion "
    "description owing to interpolation between them. Lesser number of key frames accelerates "
    "data export in After Effects ® also. \nCurrent value of the parameter means that ",
    "Допустимая погрешность (в пикселях) при загрузке преобразований в After Effects ®. Чем "
    "больше значение, тем меньше ключевых кадров понадобится в After Effects ® для описания "
    "движения благодаря интерполяции между ними. Меньшее число ключевых кадров к тому же "
    "ускоряет экспорт данных в After Effects ®. \nТекущее значение параметра означает, что "};
constexpr Piece kInaccuracyBounded{
    "maximal inaccuracy of any point displacement in any frame including invisible points "
    "outside the mask and the overlay in After Effects ® will be at most ",
    "в After Effects ® погрешность смещения любой точки на любом кадре, включая невидимые точки "
    "за пределами маски и накладываемого слоя, составит не более "};
constexpr Piece kInaccuracyPixels{" pixels", " пикс."};
constexpr Piece kInaccuracyExact{
    "found transformations in this composition will be transmitted precisely without any loss at "
    "the expense of making each frame in After Effects ® the key frame",
    "найденные преобразования этой композиции будут переданы точно, без каких-либо потерь, ценой "
    "того, что каждый кадр в After Effects ® станет ключевым"};

constexpr Piece kModelLead{
    "Select how the computed motion parameters are uploaded to After Effects ®.\nCurrent value '",
    "Выберите, как вычисленные параметры движения передаются в After Effects ®.\nТекущее "
    "значение '"};
constexpr Piece kModelAccurate{"selects accurate transmission of the computed motion ",
                               "выбирает точную передачу вычисленного движения "};
constexpr Piece kModelTail{", even if this requires motion approximation",
                           ", даже если для этого потребуется аппроксимация движения"};
constexpr Piece kModelAuto{
    "allows Velomar to select the most suitable parameter representation method (among "
    "Translation, Rigid, Rigid+Scale, Affine (Mixed Transform)) depending on the current segment "
    "'Motion model' and the selected 'Inaccuracy' parameter value",
    "позволяет Velomar самому выбрать наиболее подходящий способ представления параметров (из "
    "Translation, Rigid, Rigid+Scale, Affine (Mixed Transform)) в зависимости от 'Motion model' "
    "текущего сегмента и выбранного значения параметра 'Inaccuracy'"};
constexpr Piece kModelTranslation{
    "selects transmission of the computed motion as pure layer translations",
    "выбирает передачу вычисленного движения в виде чистых смещений слоя"};
constexpr Piece kModelRigid{
    "enables transmission of the computed motion as a combination of layer translation and "
    "rotation (no scaling)",
    "включает передачу вычисленного движения в виде сочетания смещения и поворота слоя (без "
    "масштабирования)"};
constexpr Piece kModelRigidScale{
    "selects transmission of the computed motion as a combination of layer translation, rotation "
    "and scaling",
    "выбирает передачу вычисленного движения в виде сочетания смещения, поворота и "
    "масштабирования слоя"};
constexpr Piece kModelAffine1{
    "via the 'Transform' effect, in which transformations are represented as a combination of "
    "translation, rotation, skew with respect to the specified axis, and a non-uniform scaling. "
    "(In the current export mode, the skew axis direction is counted off the vertical axis)",
    "через эффект 'Transform', в котором преобразования представлены сочетанием смещения, "
    "поворота, наклона относительно заданной оси и неравномерного масштабирования. (В текущем "
    "режиме экспорта направление оси наклона отсчитывается от вертикали)"};
constexpr Piece kModelAffine2{
    "via the 'Transform' effect, in which transformations are represented as a combination of "
    "translation, rotation, skew with respect to the specified axis, and a (non-)uniform "
    "scaling. (In the current export mode, default Uniform Scale is used, Scale Width is "
    "ignored)",
    "через эффект 'Transform', в котором преобразования представлены сочетанием смещения, "
    "поворота, наклона относительно заданной оси и (не)равномерного масштабирования. (В текущем "
    "режиме экспорта используется включённый по умолчанию Uniform Scale, а Scale Width не "
    "учитывается)"};
constexpr Piece kModelAffine3{
    "by filling standard layer transformation parameters and creating the 'Transform' effect in "
    "which only the skew is set. You may wish to use this mode of affine motion transmission to "
    "After Effects ® if 'Motion Blur' is to be applied to the patch layer. (This is because "
    "'Motion Blur' fails to use anything but standard layer parameters)",
    "через стандартные параметры трансформации слоя и эффект 'Transform', в котором задаётся "
    "только наклон. Этот режим передачи аффинного движения в After Effects ® пригодится, если к "
    "слою-заплатке будет применяться 'Motion Blur'. (Дело в том, что 'Motion Blur' учитывает "
    "только стандартные параметры слоя)"};
constexpr Piece kModelCornerPin{
    "by creating the Corner Pin effect, in which transformations are determined by the "
    "displacements of the four frame corners. (For affine motion, only three out of four "
    "displacements are independent)",
    "через эффект Corner Pin, в котором преобразования задаются смещениями четырёх углов кадра. "
    "(При аффинном движении независимы только три смещения из четырёх)"};

// Overlay.

constexpr Piece kSourceOffset{
    "Offset of the overlay footage from the beginning of the composition",
    "Смещение материала накладываемого слоя относительно начала композиции"};
constexpr Piece kTrimming{"Range of the overlay footage frames that are visible in the composition",
                          "Диапазон кадров материала накладываемого слоя, видимых в композиции"};
constexpr Piece kMatchFrame{"Frame in which the transformation is fixed",
                            "Кадр, в котором преобразование зафиксировано"};
constexpr Piece kAlignment{"Alignment of the overlay relative to the underlay at the match frame",
                           "Выравнивание накладываемого слоя относительно подложки на кадре "
                           "совмещения"};
constexpr Piece kInitialTransform{"Affine parameter of initial overlay transformation",
                                  "Аффинный параметр начального преобразования накладываемого "
                                  "слоя"};
constexpr Piece kAlpha{"Determines how overlay alpha channel values are interpreted",
                       "Определяет, как интерпретируются значения альфа-канала накладываемого "
                       "слоя"};
constexpr Piece kOverlayType{
    "Still overlay does not change in time, while live overlay is essentially a video stream",
    "Неподвижный накладываемый слой не меняется во времени, а живой по сути представляет собой "
    "видеопоток"};

// Segment.

constexpr Piece kTimeRange{"Time range of the segment in composition",
                           "Временной диапазон сегмента в композиции"};

constexpr Piece kRadiusLead{
    "Upper bound on interframe displacements of tracked pixels. Used only when dealing with the "
    "key frame, when previous velocity estimates are not yet available. If the radius is too "
    "small, correct matches can hardly be found, and the results will be poor.\nCurrent value "
    "allows up to ",
    "Верхняя граница межкадровых смещений отслеживаемых пикселей. Используется только на "
    "ключевом кадре, пока оценок скорости по предыдущим кадрам ещё нет. Если радиус слишком мал, "
    "верные соответствия найти почти невозможно, и результат будет плохим.\nТекущее значение "
    "допускает смещение до "};
constexpr Piece kRadiusTail{
    " pixels displacement in any place of the tracked area between key frame and its neighbours",
    " пикс. в любом месте отслеживаемой области между ключевым кадром и соседними с ним"};

constexpr Piece kAccelerationLead{
    "Maximum motion change difference between successive frames (in pixels). A lower but valid "
    "upper bound on pixel acceleration will result in faster computation. Note that rotation "
    "always proceeds with acceleration. Current value allows up to ",
    "Наибольшее изменение движения между соседними кадрами (в пикселях). Меньшая, но всё ещё "
    "достаточная верхняя граница ускорения пикселей ускоряет вычисления. Учтите, что вращение "
    "всегда идёт с ускорением. Текущее значение допускает расхождение до "};
constexpr Piece kAccelerationTail{" pixels displacement between predicted and actual motion",
                                  " пикс. между предсказанным и фактическим движением"};

constexpr Piece kBlockLead{
    "Size of square image blocks used for motion tracking. Use smaller size for masks with "
    "curved or narrow parts. Larger blocks work faster but may not yield accurate results. The "
    "value of ",
    "Размер квадратных блоков изображения, по которым отслеживается движение. Для масок с "
    "изогнутыми или узкими частями берите размер поменьше. Крупные блоки обрабатываются "
    "быстрее, но могут дать неточный результат. Значение "};
constexpr Piece kBlockMiddle{" leads to ", " даёт "};
constexpr Piece kBlockTail{" pixels in most (square) blocks",
                           " пикс. в большинстве (квадратных) блоков"};

constexpr Piece kSameMask{
    "The same mask is used to compute motion in all frames. It is recommended to lower "
    "'Reference frame pitch' in most situations as well",
    "Для расчёта движения во всех кадрах используется одна и та же маска. В большинстве случаев "
    "рекомендуется также уменьшить 'Reference frame pitch'"};
constexpr Piece kMovingMask{
    "The mask to compute motion moves itself with computed motion from frame to frame",
    "Маска для расчёта движения сама перемещается от кадра к кадру вместе с найденным движением"};

constexpr Piece kIntensive{
    "Intensive estimation method is surely slowly than others, but might help sometimes",
    "Метод Intensive заметно медленнее остальных, но иногда может выручить"};
constexpr Piece kFastest{
    "This is the fastest method that does not require additional parameters. It is applicable "
    "only if the motion from frame to frame is small",
    "Самый быстрый метод, не требующий дополнительных параметров. Подходит, только если "
    "движение от кадра к кадру невелико"};
constexpr Piece kFast{
    "The method 'Fast' allows tracking rapidly moving WITHOUT acceleration objects. When the "
    "method fails to work, more computation intensive ones might do the job",
    "Метод 'Fast' позволяет отслеживать быстро движущиеся объекты, если они движутся БЕЗ "
    "ускорения. Если метод не справляется, может помочь один из более ресурсоёмких"};
constexpr Piece kNormal{
    "Normal method is recommended in most cases. However when the processing time is critical "
    "you may try the Fast method. ",
    "Метод Normal рекомендуется в большинстве случаев. Если же важно время обработки, "
    "попробуйте метод Fast. "};

constexpr Piece kMotionModelLead{
    "Selects a motion model that fits best the actual motion in video. ",
    "Выбирает модель движения, которая лучше всего описывает реальное движение в видео. "};
constexpr Piece kTranslationModel{
    "The Translation model permits only pure shifts of tracked mask",
    "Модель Translation допускает только чистые сдвиги отслеживаемой маски"};
constexpr Piece kRigidModel{
    "The Rigid model is Shift+Rotate, that is it permits both translation and rotation but not "
    "scaling of tracked mask. It might suffice when the object rotates or the camera pans (no "
    "zoomand the camera does not close up on the object)",
    "Модель Rigid — это Shift+Rotate: она допускает и сдвиг, и поворот отслеживаемой маски, но не "
    "масштабирование. Её может хватить, когда объект вращается или камера панорамирует (без "
    "зума, и камера не наезжает на объект)"};
constexpr Piece kRigidScaleModel{
    "The selected model is Shift+Rotate+Scale, use it to handle limited zoom",
    "Выбрана модель Shift+Rotate+Scale; используйте её при небольшом зуме"};
constexpr Piece kAffineModel{"Affine model is the most general of all",
                             "Аффинная модель — самая общая из всех"};

constexpr Piece kPitchLead{
    "Reference frame is used as source frame for motion estimation between it and new frame. "
    "The key frame of segment is the first reference frame always. A pitch of ",
    "Опорный кадр служит исходным при оценке движения между ним и новым кадром. Ключевой кадр "
    "сегмента всегда становится первым опорным. Шаг "};
constexpr Piece kPitchEvery{" means that new reference frames are generated every ",
                            " означает, что новым опорным становится каждый "};
constexpr Piece kPitchBetween{" frames and motion is estimated between frame 0 and frames 1 ",
                              "-й кадр, а движение оценивается между кадром 0 и кадрами с 1 "};
constexpr Piece kPitchTo{"to ", "по "};
constexpr Piece kPitchTail{
    ", and so on. This value may need to be decreased for motion with big rotation,  however "
    "bigger value here results in faster processing",
    ", и так далее. При сильном вращении это значение, возможно, придётся уменьшить, однако чем "
    "оно больше, тем быстрее идёт обработка"};
// Russian says "every frame" where the pitch is 1, as "every 1-th frame"
// would not be said.
constexpr const char* kPitchEachFrameRu =
    " означает, что опорным становится каждый кадр, а движение оценивается между кадрами 0 и 1";

}  // namespace

std::string Framerate(HintLanguage language) {
  return In(language, kFramerate);
}
std::string PixelAspect(HintLanguage language) {
  return In(language, kPixelAspect);
}
std::string StartFrame(HintLanguage language) {
  return In(language, kStartFrame);
}
std::string WorkArea(HintLanguage language) {
  return In(language, kWorkArea);
}
std::string Export(HintLanguage language) {
  return In(language, kExport);
}

std::string Task(HintLanguage language, TaskType task) {
  return In(language, kTaskLead) +
         In(language, task == TaskType::Compensation ? kTaskCompensation : kTaskTracking);
}

std::string Inaccuracy(HintLanguage language, float pixels) {
  std::string text = In(language, kInaccuracyLead);
  if (pixels > 0) {
    text +=
        In(language, kInaccuracyBounded) + FormatNumber(pixels) + In(language, kInaccuracyPixels);
  } else {
    text += In(language, kInaccuracyExact);
  }
  return text;
}

std::string TransformModel(HintLanguage language, ExportModel model) {
  std::string text = In(language, kModelLead) + std::string(Label(model)) + "' ";
  const auto approximated = [&](const Piece& piece) {
    return In(language, piece) + In(language, kModelTail);
  };
  const auto accurate = [&](const Piece& piece) {
    return In(language, kModelAccurate) + In(language, piece);
  };
  switch (model) {
    case ExportModel::Auto:
      return text + In(language, kModelAuto);
    case ExportModel::Translation:
      return text + approximated(kModelTranslation);
    case ExportModel::Rigid:
      return text + approximated(kModelRigid);
    case ExportModel::RigidScale:
      return text + approximated(kModelRigidScale);
    case ExportModel::Affine1:
      return text + accurate(kModelAffine1);
    case ExportModel::Affine2:
      return text + accurate(kModelAffine2);
    case ExportModel::Affine3:
      return text + accurate(kModelAffine3);
    case ExportModel::CornerPin:
      return text + accurate(kModelCornerPin);
  }
  return text;
}

std::string SourceOffset(HintLanguage language) {
  return In(language, kSourceOffset);
}
std::string Trimming(HintLanguage language) {
  return In(language, kTrimming);
}
std::string MatchFrame(HintLanguage language) {
  return In(language, kMatchFrame);
}
std::string OverlayAlignment(HintLanguage language) {
  return In(language, kAlignment);
}
std::string InitialTransformElement(HintLanguage language) {
  return In(language, kInitialTransform);
}
std::string OverlayAlpha(HintLanguage language) {
  return In(language, kAlpha);
}
std::string OverlayType(HintLanguage language) {
  return In(language, kOverlayType);
}

std::string TimeRange(HintLanguage language) {
  return In(language, kTimeRange);
}

std::string MatchingRadius(HintLanguage language, uint32_t radius) {
  return In(language, kRadiusLead) + FormatNumber(radius) + In(language, kRadiusTail);
}

std::string MaxMotionChange(HintLanguage language, uint32_t pixels) {
  return In(language, kAccelerationLead) + FormatNumber(pixels) + In(language, kAccelerationTail);
}

std::string TrackerSize(HintLanguage language, uint32_t size) {
  // Squared as a double so that no size can wrap.
  const double area = static_cast<double>(size) * size;
  return In(language, kBlockLead) + FormatNumber(size) + In(language, kBlockMiddle) +
         FormatNumber(area) + In(language, kBlockTail);
}

std::string OriginalMaskInAllFrames(HintLanguage language, bool same_mask) {
  return In(language, same_mask ? kSameMask : kMovingMask);
}

std::string EstimationMethod(HintLanguage language, MotionEstimation method) {
  switch (method) {
    case MotionEstimation::Fastest:
      return In(language, kFastest);
    case MotionEstimation::Fast:
      return In(language, kFast);
    case MotionEstimation::Normal:
      return In(language, kNormal) + In(language, kIntensive);
    case MotionEstimation::Intensive:
      return In(language, kIntensive);
  }
  return {};
}

std::string MotionModel(HintLanguage language, TransformClass model) {
  std::string text = In(language, kMotionModelLead);
  switch (model) {
    case TransformClass::Translation:
      return text + In(language, kTranslationModel);
    case TransformClass::Rigid:
      return text + In(language, kRigidModel);
    case TransformClass::RigidScale:
      return text + In(language, kRigidScaleModel);
    default:  // both affine values
      return text + In(language, kAffineModel);
  }
}

std::string ReferenceFramePitch(HintLanguage language, uint32_t pitch) {
  const std::string number = FormatNumber(pitch);
  std::string text = In(language, kPitchLead) + number;
  if (language == HintLanguage::Russian && pitch < 2) {
    text += kPitchEachFrameRu;
  } else {
    text += In(language, kPitchEvery) + number + In(language, kPitchBetween);
    if (pitch > 1) text += In(language, kPitchTo) + number;
  }
  return text + In(language, kPitchTail);
}

}  // namespace app::hints
