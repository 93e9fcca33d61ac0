// SPDX-License-Identifier: GPL-3.0-or-later
// The main window: the view in the middle, the right bar (Info, After
// Effects, Display Mode, the property grid, Tools) and the bottom bar (Time
// Controls, Trackline Control) behind splitters, the menu bar and the status
// bar. Everything it shows and does comes from app::WindowPresenter; the
// window only builds widgets and forwards.
#pragma once

#include <QAction>
#include <QKeySequence>
#include <QList>
#include <QMainWindow>
#include <QTimer>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/commands/window_presenter.h"

class QGridLayout;
class QLabel;
class QLineEdit;
class QSlider;
class QSplitter;
class QVBoxLayout;
class QGroupBox;

namespace gui {

class ViewWidget;

// An accelerator as the menu text writes it ("Ctrl+N", "Enter", "Ctrl+ -")
// as the keys Qt listens to; empty for none.
QList<QKeySequence> Shortcuts(const std::string& accelerator);

class MainFrame : public QMainWindow {
 public:
  explicit MainFrame(QWidget* parent = nullptr);
  ~MainFrame() override;

  ViewWidget& view() { return *view_; }
  // Builds the menus and panels from the presenter and applies its layout.
  void attach(app::WindowPresenter& presenter);
  // Writes the bars' sizes back into the presenter's layout.
  void store_layout();
  // Shows or hides the bars and the status bar as the layout says.
  void show_bars();
  // The action of a menu entry by its path of captions without "&", as
  // "File/Save" or "Display/Background Color/Black"; null when none.
  QAction* action(const std::string& path) const;
  // Re-reads every enabling, tick and label rule (the After Effects menu's
  // only when `link` is set: those ask the plug-in).
  void refresh(bool link = false);
  QWidget* right_bar() const;
  QWidget* bottom_bar() const;
  // The bars hold further panels (the property grid, the trackline) here.
  void add_right_panel(QWidget* panel, const std::string& title, int stretch = 0);
  void set_grid_title(const QString& title);
  void set_trackline(QWidget* trackline);
  // A button of the Tools panel; `update` sets its state at each refresh.
  void add_tool(QAction* action, std::function<void(QAction*)> update);

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  struct Entry {
    QAction* action;
    const app::MenuCommand* command;
    bool link;
  };
  void build_menu(QMenu* menu,
                  const std::vector<app::MenuCommand>& items,
                  const std::string& path,
                  bool link);
  void fill_popup(QMenu* menu, const app::MenuCommand& command, const std::string& path, bool link);
  void add_action(QMenu* menu, const app::MenuCommand& command, const std::string& path, bool link);
  void refresh_entry(const Entry& entry);
  void apply_layout();
  void build_panels();
  void refresh_panels();
  QGroupBox* panel(const char* title, QVBoxLayout* into);

  app::WindowPresenter* presenter_ = nullptr;
  std::vector<app::MenuCommand> menus_;
  // Entries of the popups made at each opening live until the next opening.
  std::map<QMenu*, std::vector<app::MenuCommand>> filled_;
  std::vector<Entry> entries_;
  std::map<std::string, QAction*> by_path_;
  std::vector<std::pair<QMenu*, const app::MenuCommand*>> group_menus_;
  ViewWidget* view_;
  QSplitter* right_splitter_;
  QSplitter* bottom_splitter_;
  QWidget* right_bar_;
  QVBoxLayout* right_layout_;
  QWidget* bottom_bar_;
  QVBoxLayout* bottom_layout_;
  QWidget* trackline_box_ = nullptr;
  QWidget* trackline_ = nullptr;
  QSlider* time_slider_ = nullptr;
  QLineEdit* time_field_ = nullptr;
  QLabel* info_ = nullptr;
  QGridLayout* tools_layout_ = nullptr;
  class QGroupBox* grid_box_ = nullptr;
  std::vector<std::pair<QAction*, std::function<void(QAction*)>>> tools_;
  QTimer idle_;
  QTimer link_idle_;
};

}  // namespace gui
