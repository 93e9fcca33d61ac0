// SPDX-License-Identifier: GPL-3.0-or-later
// The property panel's grid: the settings of the object the composition
// shows in its panel (the active segment, else the overlay when it is the
// active object, else the composition), as a two-column tree of names and
// value controls.
//
// The rows, their controls, their hints and every write come from the
// core's property trees: numbers are typed into text fields, flags are
// check boxes, enumerations drop-down lists, composite values a summary
// with their parts below. Each edit is one undoable action of the object.
// Text the core refuses is reported as the message loop reports a failed
// command, and the field shows the value that stayed.
//
// The grid follows the panel state on its own (a light poll of the panel's
// revision); Refresh() brings it up to date at once, after a command. The
// composition must outlive the widget.
//
//   VLPropertyGrid grid(comp, parent);
//   dock->setWidget(&grid);
//   connect(&grid, &VLPropertyGrid::titleChanged, dock, &QDockWidget::setWindowTitle);
//   app::SetHintLanguage(1); grid.Rebuild();   // Russian hints
#pragma once

#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "app/model/comp.h"
#include "app/model/properties.h"

class QLabel;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;

class VLPropertyGrid : public QWidget {
  Q_OBJECT

 public:
  explicit VLPropertyGrid(VLComp& comp, QWidget* parent = nullptr);
  ~VLPropertyGrid() override;

  // Shows the panel's object anew when it changed, else re-reads values,
  // states and hints when the panel's revision moved.
  void Refresh();
  // Builds the rows again (a change of the hint language).
  void Rebuild();

  // "Composition Properties", "Overlay Properties", "Segment Properties",
  // or "Property Editor" with nothing shown.
  QString Title() const;

  // How a refused edit is shown; by default as the message loop shows a
  // failed command, through the composition's dialogs.
  std::function<void(const std::string& text)> reportError;

  // For the window and tests: the row of a property path ("Export",
  // "Framerate"), its value control, and the hint under the grid.
  QTreeWidgetItem* Row(const std::vector<std::string>& path) const;
  QWidget* Control(const std::vector<std::string>& path) const;
  QString ShownHint() const;

 signals:
  void titleChanged(const QString& title);

 private:
  struct Line {
    const app::Property* property;
    QTreeWidgetItem* item;
    QWidget* control;  // null for a group
    std::vector<std::string> path;
  };

  app::EditableObject* ShownObject() const;
  app::EditableObjects Objects() const;
  void AddRows(const app::Property& parent,
               QTreeWidgetItem* parentItem,
               std::vector<std::string> path);
  QWidget* MakeControl(const app::Property& property);
  void UpdateLine(const Line& line);
  void UpdateAll();
  void UpdateHint();
  // Runs one write of the grid; a refusal is reported and the values read anew.
  void Edit(const std::function<void()>& write);

  VLComp& comp_;
  QTreeWidget* tree_;
  QLabel* hint_;
  QTimer* poll_;
  std::vector<Line> lines_;
  app::EditableObject* shownObject_ = nullptr;  // what the rows were built for
  PanelObject shownKind_ = PanelObject::None;
  int32_t shownSegment_ = -1;
  uint64_t shownRevision_ = 0;
  bool built_ = false;
};
