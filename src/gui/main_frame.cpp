// SPDX-License-Identifier: GPL-3.0-or-later
#include "gui/main_frame.h"

#include <QCloseEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QScrollArea>
#include <QSlider>
#include <QSplitter>
#include <QStatusBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/commands/application.h"
#include "app/link/link_rules.h"
#include "app/model/comp.h"
#include "app/preview/view.h"
#include "gui/view_widget.h"

namespace gui {
namespace {

QString Q(const std::string& s) {
  return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

// "&Save" to "Save": paths name entries without their mnemonics.
std::string Plain(std::string caption) {
  std::erase(caption, '&');
  return caption;
}

}  // namespace

QList<QKeySequence> Shortcuts(const std::string& accelerator) {
  if (accelerator.empty()) return {};
  if (accelerator == "Enter") return {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)};
  if (accelerator == "+") return {QKeySequence(Qt::Key_Plus)};
  if (accelerator == "-") return {QKeySequence(Qt::Key_Minus)};
  std::string text = accelerator;
  // The menu's own spellings: a blank before the minus, and "Arl" for Alt.
  if (const size_t at = text.find("+ -"); at != std::string::npos) text.replace(at, 3, "+-");
  if (text.rfind("Arl+", 0) == 0) text.replace(0, 3, "Alt");
  const QKeySequence keys = QKeySequence::fromString(Q(text), QKeySequence::PortableText);
  if (keys.isEmpty()) return {};
  return {keys};
}

MainFrame::MainFrame(QWidget* parent) : QMainWindow(parent) {
  setObjectName("MainFrame");
  view_ = new ViewWidget;
  right_bar_ = new QWidget;
  right_layout_ = new QVBoxLayout(right_bar_);
  right_layout_->setContentsMargins(4, 4, 4, 4);
  bottom_bar_ = new QWidget;
  bottom_layout_ = new QVBoxLayout(bottom_bar_);
  bottom_layout_->setContentsMargins(4, 4, 4, 4);
  auto* scroll = new QScrollArea;
  scroll->setWidget(right_bar_);
  scroll->setWidgetResizable(true);
  // The panels fit the bar's width; only a short window scrolls them.
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll->setObjectName("RightPanelBar");
  right_splitter_ = new QSplitter(Qt::Horizontal);
  right_splitter_->setObjectName("RightSplitter");
  right_splitter_->addWidget(view_);
  right_splitter_->addWidget(scroll);
  right_splitter_->setStretchFactor(0, 1);
  right_splitter_->setCollapsible(0, false);
  bottom_splitter_ = new QSplitter(Qt::Vertical);
  bottom_splitter_->setObjectName("BottomSplitter");
  bottom_splitter_->addWidget(right_splitter_);
  bottom_splitter_->addWidget(bottom_bar_);
  bottom_bar_->setObjectName("BottomPanelBar");
  bottom_splitter_->setStretchFactor(0, 1);
  bottom_splitter_->setCollapsible(0, false);
  setCentralWidget(bottom_splitter_);
  statusBar();
  resize(1280, 860);
}

MainFrame::~MainFrame() = default;

QWidget* MainFrame::right_bar() const {
  return right_splitter_->widget(1);
}
QWidget* MainFrame::bottom_bar() const {
  return bottom_bar_;
}

QGroupBox* MainFrame::panel(const char* title, QVBoxLayout* into) {
  auto* box = new QGroupBox(QString::fromUtf8(title));
  QFont tiny = box->font();
  tiny.setPixelSize(11);
  box->setFont(tiny);
  into->addWidget(box);
  return box;
}

void MainFrame::add_right_panel(QWidget* widget, const std::string& title, int stretch) {
  // Before the Tools panel and the closing stretch.
  auto* box = new QGroupBox(Q(title));
  QFont tiny = box->font();
  tiny.setPixelSize(11);
  box->setFont(tiny);
  auto* layout = new QVBoxLayout(box);
  layout->setContentsMargins(2, 2, 2, 2);
  layout->addWidget(widget);
  right_layout_->insertWidget(right_layout_->count() - 2, box, stretch);
  grid_box_ = box;
  // With a stretching panel the bar needs no stretch of its own.
  if (stretch > 0) right_layout_->setStretch(right_layout_->count() - 1, 0);
}

void MainFrame::set_grid_title(const QString& title) {
  if (grid_box_) grid_box_->setTitle(title);
}

void MainFrame::add_tool(QAction* action, std::function<void(QAction*)> update) {
  auto* b = new QToolButton;
  b->setDefaultAction(action);
  b->setToolButtonStyle(Qt::ToolButtonTextOnly);
  b->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  const int i = tools_layout_->count();
  tools_layout_->addWidget(b, i / 2, i % 2);
  addAction(action);
  tools_.emplace_back(action, std::move(update));
}

void MainFrame::set_trackline(QWidget* trackline) {
  if (!trackline_box_) return;
  // The trackline moves the time itself: the plain slider goes.
  delete time_slider_;
  time_slider_ = nullptr;
  trackline_ = trackline;
  trackline_box_->layout()->addWidget(trackline);
}

void MainFrame::attach(app::WindowPresenter& presenter) {
  presenter_ = &presenter;
  menus_ = presenter.Menus();
  for (size_t i = 0; i < menus_.size(); ++i) {
    const app::MenuCommand& top = menus_[i];
    QMenu* menu = menuBar()->addMenu(Q(top.text));
    // The link's rules ask the plug-in: only when its menu opens.
    const bool link = Plain(top.text) == "After Effects";
    build_menu(menu, top.items, Plain(top.text), link);
    connect(menu, &QMenu::aboutToShow, this, [this, link] { refresh(link); });
  }
  presenter.onTitleChanged = [this] {
    setWindowTitle(Q(presenter_->Title()));
    refresh();
  };
  presenter.onGroupEnabled = [this](bool) { refresh(); };
  build_panels();
  apply_layout();
  setWindowTitle(Q(presenter.Title()));
  connect(&idle_, &QTimer::timeout, this, [this] { refresh(); });
  idle_.start(250);
  connect(&link_idle_, &QTimer::timeout, this, [this] { refresh(true); });
  link_idle_.start(2000);
  refresh(true);
}

void MainFrame::build_menu(QMenu* menu,
                           const std::vector<app::MenuCommand>& items,
                           const std::string& path,
                           bool link) {
  for (const app::MenuCommand& item : items) {
    if (item.separator) {
      menu->addSeparator();
    } else if (item.IsPopup()) {
      QMenu* sub = menu->addMenu(Q(item.text));
      const std::string sub_path = path + "/" + Plain(item.text);
      if (item.projectGroup) group_menus_.push_back({sub, &item});
      if (item.fill) {
        connect(sub, &QMenu::aboutToShow, this,
                [this, sub, &item, sub_path, link] { fill_popup(sub, item, sub_path, link); });
        // A filled pop-up shows its tick on its own entry (AVI among the formats).
        if (item.checked) {
          sub->menuAction()->setCheckable(true);
          entries_.push_back({sub->menuAction(), &item, link});
        }
        fill_popup(sub, item, sub_path, link);
      } else {
        build_menu(sub, item.items, sub_path, link);
      }
    } else {
      add_action(menu, item, path, link);
    }
  }
}

void MainFrame::fill_popup(QMenu* menu,
                           const app::MenuCommand& command,
                           const std::string& path,
                           bool link) {
  // Forget the entries of the last filling before their commands go.
  std::erase_if(entries_, [menu](const Entry& e) {
    return e.action->parent() == menu && menu->actions().contains(e.action);
  });
  for (auto it = by_path_.begin(); it != by_path_.end();)
    it = it->first.rfind(path + "/", 0) == 0 ? by_path_.erase(it) : std::next(it);
  menu->clear();
  std::vector<app::MenuCommand>& items = filled_[menu];
  items = command.fill();
  build_menu(menu, items, path, link);
  for (const Entry& e : entries_)
    if (e.action->parent() == menu) refresh_entry(e);
}

void MainFrame::add_action(QMenu* menu,
                           const app::MenuCommand& command,
                           const std::string& path,
                           bool link) {
  auto* action = new QAction(Q(command.Caption()), menu);
  action->setShortcuts(Shortcuts(command.Accelerator()));
  action->setStatusTip(Q(command.hint));
  action->setCheckable(command.IsCheckable());
  menu->addAction(action);
  // The window's keys work while the menu bar is closed.
  addAction(action);
  const app::MenuCommand* c = &command;
  connect(action, &QAction::triggered, this, [this, c, action] {
    // The rule is asked again: a shortcut may come before the next refresh.
    if (!c->IsEnabled()) return;
    if (c->run) c->run();
    if (c->checked) action->setChecked(c->checked());
    refresh();
  });
  entries_.push_back({action, c, link});
  by_path_[path + "/" + Plain(command.Caption())] = action;
}

QAction* MainFrame::action(const std::string& path) const {
  const auto it = by_path_.find(path);
  return it == by_path_.end() ? nullptr : it->second;
}

void MainFrame::refresh_entry(const Entry& e) {
  const app::MenuCommand& c = *e.command;
  const bool enabled = c.IsEnabled();
  if (e.action->isEnabled() != enabled) e.action->setEnabled(enabled);
  if (c.checked) {
    const bool on = c.checked();
    if (e.action->isChecked() != on) e.action->setChecked(on);
  }
  if (c.label) {
    const QString text = Q(c.label());
    if (e.action->text() != text) e.action->setText(text);
  }
}

void MainFrame::refresh(bool link) {
  if (!presenter_) return;
  if (link) presenter_->RefreshLink();
  for (const Entry& e : entries_)
    if (!e.link || link) refresh_entry(e);
  for (const auto& [menu, command] : group_menus_)
    menu->setEnabled(presenter_->ProjectGroupEnabled());
  refresh_panels();
}

void MainFrame::show_bars() {
  const app::LayoutSettings& layout = presenter_->Layout();
  right_bar()->setVisible(layout.rightBarVisible);
  bottom_bar_->setVisible(layout.bottomBarVisible);
  statusBar()->setVisible(layout.statusBar);
}

void MainFrame::apply_layout() {
  const app::LayoutSettings& layout = presenter_->Layout();
  show_bars();
  const int width = std::max(right_splitter_->width(), 800);
  const int height = std::max(bottom_splitter_->height(), 600);
  right_splitter_->setSizes({width - int(layout.rightBarSize), int(layout.rightBarSize)});
  bottom_splitter_->setSizes({height - int(layout.bottomBarSize), int(layout.bottomBarSize)});
}

void MainFrame::store_layout() {
  if (!presenter_) return;
  app::LayoutSettings& layout = presenter_->Layout();
  // A hidden bar keeps the size it had when shown.
  if (right_bar()->isVisible()) layout.rightBarSize = right_splitter_->sizes().value(1);
  if (bottom_bar_->isVisible()) layout.bottomBarSize = bottom_splitter_->sizes().value(1);
}

void MainFrame::build_panels() {
  auto button = [this](const std::string& path, QLayout* into) {
    auto* b = new QToolButton;
    if (QAction* a = action(path)) b->setDefaultAction(a);
    b->setToolButtonStyle(Qt::ToolButtonTextOnly);
    into->addWidget(b);
    return b;
  };

  QGroupBox* info = panel("Info", right_layout_);
  auto* info_layout = new QVBoxLayout(info);
  info_ = new QLabel;
  info_->setObjectName("InfoText");
  info_layout->addWidget(info_);

  QGroupBox* ae = panel(app::link::kPanelTitle, right_layout_);
  auto* ae_layout = new QVBoxLayout(ae);
  for (int id : app::link::kPanelButtons) {
    if (id == 0) {
      ae_layout->addSpacing(4);
      continue;
    }
    for (const auto* info_of : {&app::link::SwitchToHostInfo(), &app::link::ImportOverlayInfo(),
                                &app::link::ExportTransformationsInfo()}) {
      if (info_of->id == id)
        button("After Effects/" + Plain(info_of->menu_text), ae_layout)
            ->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    }
  }

  QGroupBox* mode = panel("Display Mode", right_layout_);
  auto* mode_layout = new QGridLayout(mode);
  int i = 0;
  for (const char* entry :
       {"Preview", "Edit Mask", "Underlay", "Overlay", "Mask", "Inverse Mask"}) {
    auto* b = new QToolButton;
    b->setDefaultAction(action(std::string("Display/") + entry));
    b->setToolButtonStyle(Qt::ToolButtonTextOnly);
    b->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    mode_layout->addWidget(b, i / 2, i % 2);
    ++i;
  }

  QGroupBox* tools = panel("Tools", right_layout_);
  tools->setObjectName("ToolsPanel");
  tools_layout_ = new QGridLayout(tools);
  i = 0;
  for (const char* entry : {"Zoom In", "Zoom Out", "Fit on Screen", "Actual Pixels"}) {
    QToolButton* b = button(std::string("Display/") + entry, tools_layout_);
    b->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    tools_layout_->addWidget(b, i / 2, i % 2);
    ++i;
  }
  right_layout_->addStretch();

  QGroupBox* time = panel("Time Controls", bottom_layout_);
  auto* time_layout = new QHBoxLayout(time);
  button("Time/First Frame", time_layout);
  button("Time/Previous Frame", time_layout);
  button("Time/Play Backward", time_layout);
  button("Time/Pause", time_layout);
  button("Time/Play Forward", time_layout);
  button("Time/Next Frame", time_layout);
  button("Time/Last Frame", time_layout);
  time_layout->addSpacing(12);
  time_layout->addWidget(new QLabel("Frame"));
  time_field_ = new QLineEdit;
  time_field_->setObjectName("TimeField");
  time_field_->setMaximumWidth(80);
  time_layout->addWidget(time_field_);
  connect(time_field_, &QLineEdit::returnPressed, this, [this] {
    app::Velomar& app = presenter_->App();
    const std::string text = time_field_->text().toStdString();
    app.Run([&] { app.GetComposition().SetCurrentTimeByText(text); });
    view_->setFocus();
  });
  time_layout->addSpacing(12);
  button("Time/Follow", time_layout);
  button("Time/Loop", time_layout);
  button("Segment/Process", time_layout);
  button("Segment/Cancel", time_layout);
  time_layout->addStretch();

  auto* track_box = panel("Trackline Control", bottom_layout_);
  trackline_box_ = track_box;
  auto* track_layout = new QVBoxLayout(track_box);
  // Until a trackline widget is set, a plain slider moves the time.
  time_slider_ = new QSlider(Qt::Horizontal);
  time_slider_->setObjectName("TimeSlider");
  track_layout->addWidget(time_slider_);
  connect(time_slider_, &QSlider::valueChanged, this, [this](int value) {
    VLComp& comp = presenter_->App().GetComposition();
    if (!comp.IsEmpty() && value != comp.GetCurrentTime())
      presenter_->App().Run([&] { comp.SetCurrentTime(value); });
  });
  bottom_layout_->setStretch(1, 1);
}

void MainFrame::refresh_panels() {
  for (const auto& [action, update] : tools_) update(action);
  VLComp& comp = presenter_->App().GetComposition();
  const QString info = Q(presenter_->InfoText());
  if (info_ && info_->text() != info) info_->setText(info);
  if (time_field_ && !time_field_->hasFocus()) {
    const QString now = Q(comp.GetCurrentTimeText());
    if (time_field_->text() != now) time_field_->setText(now);
  }
  if (time_slider_) {
    const QSignalBlocker block(time_slider_);
    time_slider_->setEnabled(!comp.IsEmpty());
    time_slider_->setRange(0, std::max(0, comp.GetLength() - 1));
    time_slider_->setValue(std::max(0, comp.GetPreviewTime()));
  }
}

void MainFrame::closeEvent(QCloseEvent* event) {
  if (presenter_ && !presenter_->CloseRequest()) {
    event->ignore();
    return;
  }
  store_layout();
  idle_.stop();
  link_idle_.stop();
  event->accept();
}

}  // namespace gui
