// SPDX-License-Identifier: GPL-3.0-or-later
#include "gui/desktop.h"

#include <QApplication>
#include <QColorDialog>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QFile>
#include <QInputDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QStandardPaths>
#include <QUrl>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/commands/application.h"
#include "app/commands/project_files.h"
#include "app/edit/mask_editor.h"
#include "app/link/host_launcher.h"
#include "app/link/host_link.h"
#include "app/link/sleeper.h"
#include "app/model/comp.h"
#include "app/preview/view.h"
#include "app/work/processor.h"
#include "base/paths.h"
#include "gui/main_frame.h"
#include "gui/qt_ports.h"
#include "gui/view_widget.h"
#include "gui/widgets/property_grid.h"
#include "gui/widgets/trackline.h"
#include "imaging/global_cache.h"
#include "imaging/prefetcher.h"

namespace gui {

namespace fs = std::filesystem;

Desktop::Desktop(DesktopOptions options) : queue_(std::make_unique<QtGuiQueue>()) {
  if (!options.dialogs) own_dialogs_ = std::make_unique<QtDialogs>();
  if (!options.profile) own_profile_ = std::make_unique<QtProfileStore>();
  dialogs_ = options.dialogs ? options.dialogs : own_dialogs_.get();
  profile_ = options.profile ? options.profile : own_profile_.get();
  clipboard_ = std::make_unique<QtClipboard>();
  frame_ = std::make_unique<MainFrame>();
  if (own_dialogs_) own_dialogs_->set_parent(frame_.get());
  processor_ =
      std::make_unique<app::Processor>(app::ProcessorPorts{.queue = *queue_,
                                                           .dialogs = *dialogs_,
                                                           .cache = img::global_cache(),
                                                           .prefetcher = &img::global_prefetcher(),
                                                           .pump = [this] { pump(); }});
  app_ = std::make_unique<app::Velomar>(app::VelomarPorts{.queue = *queue_,
                                                          .dialogs = *dialogs_,
                                                          .profile = *profile_,
                                                          .files = app::ProjectFiles(),
                                                          .view = &frame_->view(),
                                                          .clipboard = clipboard_.get(),
                                                          .jobs = processor_.get()});
  // A message's failure is reported like a command's: the loop goes on.
  queue_->run = [this](const std::function<void()>& execute) {
    app_->Run(execute);
    if (editor_) editor_->Sync();
    if (presenter_) presenter_->Publish();
  };
  const uint32_t workspace = WorkspaceColour();
  view_ = std::make_unique<app::VLView>(app_->GetComposition(),
                                        app::VLViewPorts{.surface = frame_->view(),
                                                         .profile = *profile_,
                                                         .queue = *queue_,
                                                         .dialogs = *dialogs_,
                                                         .cache = img::global_cache(),
                                                         .workspace_colour = workspace});
  frame_->view().set_view(view_.get());
  editor_ = std::make_unique<app::MaskEditor>(app_->GetComposition(), &frame_->view());
  frame_->view().set_editor(editor_.get());
  launcher_ = std::make_unique<app::link::HostLauncher>(*profile_);
  link_ = std::make_unique<app::link::HostLink>(
      app::link::HostLinkPorts{.app = *app_, .host = launcher_.get()});
  if (options.serve_link) {
    try {
      sleeper_ = app::link::StartSleeper({.queue = *queue_, .link = *link_, .dialogs = dialogs_},
                                         options.link_path);
    } catch (const std::exception& e) {
      // Without the socket the window still works; the host cannot reach it.
      app_->ReportError(e.what());
    }
  }

  MainFrame* frame = frame_.get();
  ViewWidget* view = &frame_->view();
  app::WindowActions actions;
  actions.zoomIn = [view] { view->zoom_in(); };
  actions.zoomOut = [view] { view->zoom_out(); };
  actions.fitOnScreen = [view] { view->fit_on_screen(); };
  actions.actualPixels = [view] { view->actual_pixels(); };
  actions.askFrame = [this, frame]() -> std::optional<std::string> {
    bool ok = false;
    const QString text = QInputDialog::getText(
        frame, "Go to Frame", "Frame #", QLineEdit::Normal,
        QString::fromStdString(app_->GetComposition().GetCurrentTimeText()), &ok);
    if (!ok) return std::nullopt;
    return text.toStdString();
  };
  actions.chooseColour = [frame](uint32_t rgb) -> std::optional<uint32_t> {
    const QColor start(int(rgb & 0xFF), int((rgb >> 8) & 0xFF), int((rgb >> 16) & 0xFF));
    const QColor c = QColorDialog::getColor(start, frame, "Color");
    if (!c.isValid()) return std::nullopt;
    return uint32_t(c.red()) | uint32_t(c.green()) << 8 | uint32_t(c.blue()) << 16;
  };
  actions.about = [frame] {
    QMessageBox::about(frame, "About Velomar",
                       "<b>Velomar</b><br>Motion tracking and compensation for compositors."
                       "<br><br>Licensed under the GNU General Public License, version 3 or "
                       "later.");
  };
  actions.manual = [this] {
    app_->Run([&] {
      const std::string path = WriteManual();
      if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(path))))
        dialogs_->inform("No browser could open the manual. It is here:\n" + path);
    });
  };
  actions.exit = [frame] { frame->close(); };
  actions.layoutChanged = [frame] { frame->show_bars(); };
  actions.pump = [] { QCoreApplication::processEvents(QEventLoop::AllEvents, 5); };
  actions.enableWindow = [frame](bool enable) { frame->menuBar()->setEnabled(enable); };
  actions.hintLanguageChanged = [this] {
    if (grid_) grid_->Rebuild();
  };
  presenter_ =
      std::make_unique<app::WindowPresenter>(app::WindowPorts{.app = *app_,
                                                              .view = *view_,
                                                              .profile = *profile_,
                                                              .cache = img::global_cache(),
                                                              .clipboard = clipboard_.get(),
                                                              .link = link_.get(),
                                                              .host = launcher_.get(),
                                                              .actions = actions,
                                                              .workspace_colour = workspace});
  frame_->attach(*presenter_);

  VLComp& comp = app_->GetComposition();
  grid_ = new VLPropertyGrid(comp);
  grid_->setMinimumHeight(240);
  grid_->reportError = [this](const std::string& text) { app_->ReportError(text); };
  frame_->add_right_panel(grid_, grid_->Title().toStdString(), 1);
  QObject::connect(grid_, &VLPropertyGrid::titleChanged, frame_.get(),
                   [frame](const QString& title) { frame->set_grid_title(title); });
  trackline_ = new VLTrackline(comp);
  frame_->set_trackline(trackline_);
  // The Trackline menu's zoom, known to the presenter only now.
  presenter_->SetTracklineZoom([this] { trackline_->ZoomIn(); }, [this] { trackline_->ZoomOut(); },
                               [this] { trackline_->FitInWindow(); });
  // The composition has one listener, the trackline: the window hears it there.
  QObject::connect(trackline_, &VLTrackline::changed, frame_.get(), [this] {
    grid_->Refresh();
    frame_->view().update();
  });
  for (const app::ToolKind kind : {app::ToolKind::Brush, app::ToolKind::Fill}) {
    auto* tool = new QAction(kind == app::ToolKind::Brush ? "Brush" : "Paint Bucket", frame);
    tool->setCheckable(true);
    tool->setStatusTip(app::MaskEditor::ToolHint(kind));
    QObject::connect(tool, &QAction::triggered, frame, [this, kind] {
      if (editor_->IsEditing()) editor_->SelectTool(kind);
    });
    frame_->add_tool(tool, [this, kind](QAction* a) {
      a->setEnabled(editor_->IsEditing());
      a->setChecked(editor_->IsEditing() && editor_->GetToolKind() == kind);
    });
  }
  presenter_->Publish();
}

Desktop::~Desktop() {
  try {
    processor_->cancel_all_and_wait();
  } catch (const std::exception&) {
    // A message that fails while the program ends has no one left to tell.
  }
  frame_->store_layout();
  // The widgets that hold the composition go before it does.
  delete trackline_;
  trackline_ = nullptr;
  delete grid_;
  grid_ = nullptr;
  presenter_.reset();
  frame_->view().set_editor(nullptr);
  editor_.reset();
  sleeper_.reset();
  link_.reset();
  frame_->view().set_view(nullptr);
  view_.reset();
  try {
    app_->Exit();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velomar: the preferences were not saved: %s\n", e.what());
  }
  app_.reset();
  processor_.reset();
  frame_.reset();
  queue_.reset();
}

void Desktop::post_open(const std::string& path) {
  queue_->post(std::make_unique<app::FileOpenMessage>(*app_, path));
}

void Desktop::pump() {
  QCoreApplication::sendPostedEvents(queue_.get(), 0);
}

std::string CrashFilePath() {
  return StateFolderPath("velomar-crash.txt");
}

std::optional<std::string> UnseenCrashReport(app::ProfileStore& profile, const std::string& path) {
  std::error_code ec;
  const auto written = fs::last_write_time(path, ec);
  if (ec) return std::nullopt;
  const int64_t stamp = int64_t(written.time_since_epoch().count());
  if (profile.get_int("Crash", "Shown", 0) == stamp) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  profile.set_int("Crash", "Shown", stamp);
  if (text.str().empty()) return std::nullopt;
  return text.str();
}

std::string WriteManual() {
  QString folder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
  if (folder.isEmpty()) folder = QString::fromStdString(fs::temp_directory_path().string());
  const fs::path path = fs::path(folder.toStdString()) / "manual.html";
  fs::create_directories(path.parent_path());
  const QByteArray bytes = Resource("manual.html");
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.constData(), bytes.size());
  if (!out) throw std::runtime_error("cannot write " + path.string());
  return path.string();
}

}  // namespace gui
