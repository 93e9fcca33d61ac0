// SPDX-License-Identifier: GPL-3.0-or-later
#include "gui/widgets/property_grid.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <exception>

#include "app/model/properties_sets.h"
#include "app/report_error.h"

namespace {

QString Text(const std::string& text) {
  return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

}  // namespace

VLPropertyGrid::VLPropertyGrid(VLComp& comp, QWidget* parent)
    : QWidget(parent),
      comp_(comp),
      tree_(new QTreeWidget(this)),
      hint_(new QLabel(this)),
      poll_(new QTimer(this)) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(2);
  tree_->setColumnCount(2);
  tree_->setHeaderHidden(true);
  tree_->setRootIsDecorated(true);
  tree_->setUniformRowHeights(true);
  tree_->setSelectionMode(QAbstractItemView::SingleSelection);
  tree_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  tree_->header()->setStretchLastSection(true);
  layout->addWidget(tree_, 1);
  hint_->setWordWrap(true);
  hint_->setAlignment(Qt::AlignTop | Qt::AlignLeft);
  hint_->setTextFormat(Qt::PlainText);
  hint_->setFrameShape(QFrame::StyledPanel);
  hint_->setMargin(4);
  hint_->setMinimumHeight(fontMetrics().lineSpacing() * 5 + 10);
  layout->addWidget(hint_);
  connect(tree_, &QTreeWidget::currentItemChanged, this, [this] { UpdateHint(); });

  reportError = [this](const std::string& text) {
    if (app::UserDialogs* dialogs = comp_.GetDialogs())
      app::ReportError(comp_.GetOperations(), *dialogs, text);
  };
  // The core raises the panel's revision, it posts no event: a look five
  // times a second costs nothing and keeps the grid right whoever changed it.
  connect(poll_, &QTimer::timeout, this, [this] { Refresh(); });
  poll_->start(200);
  Refresh();
}

VLPropertyGrid::~VLPropertyGrid() = default;

app::EditableObject* VLPropertyGrid::ShownObject() const {
  const PanelState& panel = comp_.GetPanel();
  switch (panel.object) {
    case PanelObject::Composition:
      return &comp_.GetInterface();
    case PanelObject::Overlay:
      return &comp_.GetOverlay().GetInterface();
    case PanelObject::Segment:
      if (panel.segment >= 0 && panel.segment < comp_.GetSegmentCount())
        return &comp_.GetSegmentObject(panel.segment).GetInterface();
      return nullptr;
    case PanelObject::None:
      return nullptr;
  }
  return nullptr;
}

app::EditableObjects VLPropertyGrid::Objects() const {
  if (!shownObject_) return {};
  return app::EditableObjects(&shownObject_, 1);
}

QString VLPropertyGrid::Title() const {
  return Text(app::PanelTitle(shownObject_));
}

void VLPropertyGrid::Refresh() {
  const PanelState& panel = comp_.GetPanel();
  app::EditableObject* shown = ShownObject();
  if (!built_ || shown != shownObject_ || panel.object != shownKind_ ||
      panel.segment != shownSegment_) {
    Rebuild();
  } else if (panel.revision != shownRevision_) {
    shownRevision_ = panel.revision;
    UpdateAll();
  }
}

void VLPropertyGrid::Rebuild() {
  const QString oldTitle = built_ ? Title() : QString();
  // A field losing its focus as it goes would end its edit, and write to
  // whatever object is shown by then.
  for (const Line& line : lines_)
    if (line.control) line.control->blockSignals(true);
  lines_.clear();
  tree_->clear();
  const PanelState& panel = comp_.GetPanel();
  shownObject_ = ShownObject();
  shownKind_ = panel.object;
  shownSegment_ = panel.segment;
  shownRevision_ = panel.revision;
  built_ = true;
  if (const app::Property* root = app::PropertiesFor(shownObject_)) AddRows(*root, nullptr, {});
  UpdateAll();
  tree_->resizeColumnToContents(0);
  if (Title() != oldTitle) emit titleChanged(Title());
}

void VLPropertyGrid::AddRows(const app::Property& parent,
                             QTreeWidgetItem* parentItem,
                             std::vector<std::string> path) {
  for (const auto& [label, child] : parent.GetChildren()) {
    auto* item = parentItem ? new QTreeWidgetItem(parentItem) : new QTreeWidgetItem(tree_);
    item->setText(0, Text(label));
    std::vector<std::string> childPath = path;
    childPath.push_back(label);
    QWidget* control = MakeControl(*child);
    if (control) {
      tree_->setItemWidget(item, 1, control);
    } else {
      QFont bold = item->font(0);
      bold.setBold(true);
      item->setFont(0, bold);
    }
    lines_.push_back({child.get(), item, control, childPath});
    AddRows(*child, item, childPath);
    item->setExpanded(child->IsOpen());
  }
}

QWidget* VLPropertyGrid::MakeControl(const app::Property& property) {
  const app::Property* p = &property;
  switch (property.Kind()) {
    case app::ControlKind::None:
      return nullptr;
    case app::ControlKind::Text: {
      auto* edit = new QLineEdit;
      edit->setFrame(false);
      // Return and leaving the field both end an edit; the flag makes the
      // second of them (the error box takes the focus) a no-op.
      connect(edit, &QLineEdit::editingFinished, this, [this, p, edit] {
        if (!edit->isModified()) return;
        edit->setModified(false);
        const std::string text = edit->text().toStdString();
        Edit([&] { p->SetText(Objects(), text); });
      });
      return edit;
    }
    case app::ControlKind::Check: {
      auto* box = new QCheckBox;
      connect(box, &QCheckBox::toggled, this,
              [this, p](bool on) { Edit([&] { p->SetCheck(Objects(), on); }); });
      return box;
    }
    case app::ControlKind::Choice: {
      auto* combo = new QComboBox;
      combo->setFrame(false);
      for (const std::string& choice : property.Choices()) combo->addItem(Text(choice));
      connect(combo, &QComboBox::activated, this,
              [this, p](int index) { Edit([&] { p->SetChoice(Objects(), index); }); });
      return combo;
    }
    case app::ControlKind::Summary: {
      auto* label = new QLabel;
      label->setTextInteractionFlags(Qt::TextSelectableByMouse);
      return label;
    }
  }
  return nullptr;
}

void VLPropertyGrid::Edit(const std::function<void()>& write) {
  std::string refusal;
  try {
    write();
  } catch (const std::exception& e) {
    refusal = e.what();
  }
  // The fields show what the object holds now, before any message box.
  UpdateAll();
  if (!refusal.empty() && reportError) reportError(refusal);
}

void VLPropertyGrid::UpdateLine(const Line& line) {
  const app::EditableObjects objects = Objects();
  const app::Property& p = *line.property;
  const app::ControlState state = p.State(objects);
  line.item->setHidden(state == app::ControlState::Hidden);
  const QString hint = Text(p.Hint(objects));
  line.item->setToolTip(0, hint);
  line.item->setToolTip(1, hint);
  if (!line.control) return;
  line.control->setToolTip(hint);
  line.control->setEnabled(state == app::ControlState::Enabled && !p.IsReadOnly());
  const QSignalBlocker quiet(line.control);
  if (auto* edit = qobject_cast<QLineEdit*>(line.control)) {
    // Typing in progress is the user's; it stays until the edit ends.
    if (!(edit->hasFocus() && edit->isModified())) {
      edit->setText(Text(p.GetText(objects)));
      edit->setModified(false);
    }
  } else if (auto* box = qobject_cast<QCheckBox*>(line.control)) {
    box->setChecked(p.GetCheck(objects));
  } else if (auto* combo = qobject_cast<QComboBox*>(line.control)) {
    const int choice = p.GetChoice(objects);
    combo->setCurrentIndex(choice);
    if (choice < 0) combo->setPlaceholderText(Text(p.GetText(objects)));
  } else if (auto* label = qobject_cast<QLabel*>(line.control)) {
    label->setText(Text(p.GetText(objects)));
  }
}

void VLPropertyGrid::UpdateAll() {
  for (const Line& line : lines_) UpdateLine(line);
  UpdateHint();
}

void VLPropertyGrid::UpdateHint() {
  const QTreeWidgetItem* current = tree_->currentItem();
  for (const Line& line : lines_)
    if (line.item == current) {
      hint_->setText(Text(line.property->Hint(Objects())));
      return;
    }
  hint_->clear();
}

QTreeWidgetItem* VLPropertyGrid::Row(const std::vector<std::string>& path) const {
  for (const Line& line : lines_)
    if (line.path == path) return line.item;
  return nullptr;
}

QWidget* VLPropertyGrid::Control(const std::vector<std::string>& path) const {
  for (const Line& line : lines_)
    if (line.path == path) return line.control;
  return nullptr;
}

QString VLPropertyGrid::ShownHint() const {
  return hint_->text();
}
