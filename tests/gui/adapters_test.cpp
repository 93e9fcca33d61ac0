// SPDX-License-Identifier: GPL-3.0-or-later
// The Qt ports: the message queue across threads, the filter and key
// conversions, the settings store, the desktop registration and the crash
// report's one showing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <fstream>
#include <thread>

#include "app/profile_store.h"
#include "gui/desktop.h"
#include "gui/main_frame.h"
#include "gui/qt_ports.h"
#include "testing/files.h"

namespace {

class Recorder : public app::VLMessage {
 public:
  Recorder(std::vector<std::string>& log, std::string word, bool fail = false)
      : log_(log), word_(std::move(word)), fail_(fail) {}
  void Execute() override {
    log_.push_back(word_ + (std::this_thread::get_id() == main_ ? "@main" : "@other"));
    if (fail_) throw std::runtime_error(word_ + " failed");
  }
  static inline std::thread::id main_;

 private:
  std::vector<std::string>& log_;
  std::string word_;
  bool fail_;
};

TEST(QtGuiQueue, RunsMessagesOnTheWindowThreadInOrderAndReportsFailures) {
  Recorder::main_ = std::this_thread::get_id();
  gui::QtGuiQueue queue;
  std::vector<std::string> log, reports;
  queue.run = [&](const std::function<void()>& f) {
    try {
      f();
    } catch (const std::exception& e) {
      reports.push_back(e.what());
    }
  };
  std::thread worker([&] {
    queue.post(std::make_unique<Recorder>(log, "a"));
    queue.post(std::make_unique<Recorder>(log, "b", true));
    queue.post(nullptr);
    queue.post(std::make_unique<Recorder>(log, "c"));
  });
  worker.join();
  EXPECT_TRUE(log.empty());  // nothing runs before the loop does
  QCoreApplication::sendPostedEvents(&queue, 0);
  EXPECT_THAT(log, ::testing::ElementsAre("a@main", "b@main", "c@main"));
  EXPECT_THAT(reports, ::testing::ElementsAre("b failed"));
}

TEST(QtFilter, TurnsPipeFiltersIntoQtFilters) {
  const std::vector<std::pair<std::string, QString>> cases = {
      {"Velomar Project (*.vlp)|*.vlp||", "Velomar Project (*.vlp)"},
      {"Image Files (*.bmp;*.png)|*.bmp;*.png|ACDSee Sequence (*.ais)|*.ais|All Files (*.*)|*.*||",
       "Image Files (*.bmp *.png);;ACDSee Sequence (*.ais);;All Files (*.*)"},
      {"Text Files (*.txt)|*.txt|All Files (*.*)|*.*||", "Text Files (*.txt);;All Files (*.*)"},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(gui::QtFilter(in), out) << in;
}

TEST(Shortcuts, MenuSpellingsBecomeTheKeysQtListensTo) {
  const std::vector<std::pair<std::string, QList<QKeySequence>>> cases = {
      {"Ctrl+N", {QKeySequence(Qt::CTRL | Qt::Key_N)}},
      {"Shift+Ctrl+Z", {QKeySequence(Qt::SHIFT | Qt::CTRL | Qt::Key_Z)}},
      {"Ctrl++", {QKeySequence(Qt::CTRL | Qt::Key_Plus)}},
      {"Ctrl+ -", {QKeySequence(Qt::CTRL | Qt::Key_Minus)}},
      {"Alt+Ctrl+0", {QKeySequence(Qt::ALT | Qt::CTRL | Qt::Key_0)}},
      {"Arl+]", {QKeySequence(Qt::ALT | Qt::Key_BracketRight)}},
      {"Enter", {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)}},
      {"Esc", {QKeySequence(Qt::Key_Escape)}},
      {"Del", {QKeySequence(Qt::Key_Delete)}},
      {"+", {QKeySequence(Qt::Key_Plus)}},
      {"-", {QKeySequence(Qt::Key_Minus)}},
      {"Alt+Space", {QKeySequence(Qt::ALT | Qt::Key_Space)}},
      {"Ctrl+Alt+Home", {QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_Home)}},
      {"", {}},
  };
  for (const auto& [text, keys] : cases) EXPECT_EQ(gui::Shortcuts(text), keys) << text;
}

TEST(QtProfileStore, KeepsSectionsKeysAndFallbacks) {
  testing_support::TempDir dir;
  const QString ini = QString::fromStdString(dir / "velomar.ini");
  {
    gui::QtProfileStore store(ini);
    store.set_int("Layout", "RightBarSize", 321);
    store.set_string("Preferences", "RenderingFormat", "png");
    store.set_string("Preferences", "Property Hint Language", "x");
    EXPECT_EQ(store.get_int("Layout", "RightBarSize", 0), 321);
    EXPECT_EQ(store.get_int("Layout", "Missing", 7), 7);
    EXPECT_EQ(store.get_int("Preferences", "Property Hint Language", 5), 5);
  }
  gui::QtProfileStore again(ini);
  EXPECT_EQ(again.get_int("Layout", "RightBarSize", 0), 321);
  EXPECT_EQ(again.get_string("Preferences", "RenderingFormat", ""), "png");
}

TEST(FreedesktopRegistration, WritesAndRemovesTheDesktopFiles) {
  testing_support::TempDir dir;
  gui::FreedesktopRegistration reg(dir.path().string());
  reg.register_types("/opt/my tools/velomar");
  std::ifstream desktop(reg.desktop_file());
  std::string text((std::istreambuf_iterator<char>(desktop)), {});
  EXPECT_THAT(text, ::testing::HasSubstr("Exec=\"/opt/my tools/velomar\" %f\n"));
  EXPECT_THAT(text, ::testing::HasSubstr("application/x-velomar-project;"));
  std::ifstream mime(reg.mime_file());
  std::string types((std::istreambuf_iterator<char>(mime)), {});
  EXPECT_THAT(types, ::testing::HasSubstr("<glob pattern=\"*.vlp\""));
  EXPECT_THAT(types, ::testing::HasSubstr("<glob pattern=\"*.ais\""));
  EXPECT_TRUE(std::filesystem::exists(reg.icon_file()));
  // Every start registers: unchanged files are left alone.
  const auto written = std::filesystem::last_write_time(reg.desktop_file());
  std::filesystem::last_write_time(reg.desktop_file(), written - std::chrono::hours(1));
  reg.register_types("/opt/my tools/velomar");
  EXPECT_EQ(std::filesystem::last_write_time(reg.desktop_file()), written - std::chrono::hours(1));
  reg.register_types("/usr/bin/velomar");  // the program moved
  EXPECT_NE(std::filesystem::last_write_time(reg.desktop_file()), written - std::chrono::hours(1));
  EXPECT_THROW(reg.register_types(""), std::runtime_error);
  reg.unregister_types();
  for (const std::string& f : {reg.desktop_file(), reg.mime_file(), reg.icon_file()})
    EXPECT_FALSE(std::filesystem::exists(f)) << f;
}

TEST(CrashReport, ShownOnceAndTheFileStays) {
  testing_support::TempDir dir;
  app::MemoryProfileStore profile;
  const std::string path = dir / "crash.txt";
  EXPECT_FALSE(gui::UnseenCrashReport(profile, path));  // no crash yet
  std::ofstream(path) << "velomar caused an SIGSEGV\n";
  EXPECT_EQ(gui::UnseenCrashReport(profile, path), "velomar caused an SIGSEGV\n");
  EXPECT_FALSE(gui::UnseenCrashReport(profile, path));
  EXPECT_TRUE(std::filesystem::exists(path));
  // A later crash writes the file anew: shown again.
  std::filesystem::last_write_time(
      path, std::filesystem::last_write_time(path) + std::chrono::seconds(5));
  EXPECT_TRUE(gui::UnseenCrashReport(profile, path));
}

}  // namespace

namespace {

TEST(Manual, IsWrittenWhereTheBrowserCanOpenIt) {
  testing_support::TempDir dir;
  qputenv("XDG_CACHE_HOME", QByteArray::fromStdString(dir.path().string()));
  const std::string path = gui::WriteManual();
  qunsetenv("XDG_CACHE_HOME");
  EXPECT_EQ(path.rfind(dir.path().string(), 0), 0u) << path;
  std::ifstream in(path);
  const std::string html((std::istreambuf_iterator<char>(in)), {});
  EXPECT_THAT(html, ::testing::HasSubstr("<title>Velomar Manual</title>"));
  for (const char* topic :
       {"id=\"open\"", "id=\"paint\"", "id=\"track\"", "id=\"segments\"", "id=\"overlay\"",
        "id=\"compensation\"", "id=\"render\"", "id=\"keyframes\"", "id=\"link\""})
    EXPECT_THAT(html, ::testing::HasSubstr(topic));
}

}  // namespace
