// SPDX-License-Identifier: GPL-3.0-or-later
#include "gui/qt_ports.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QMessageBox>
#include <QProcess>
#include <QProgressDialog>
#include <QStandardPaths>
#include <filesystem>
#include <stdexcept>

#include "base/errors.h"

// The resources live in the static library: they register on first use.
static void InitResources() {
  static const bool done = [] {
    Q_INIT_RESOURCE(velomar);
    return true;
  }();
  (void)done;
}

namespace gui {
namespace {

const QEvent::Type kMessageEvent = QEvent::Type(QEvent::registerEventType());

class MessageEvent : public QEvent {
 public:
  explicit MessageEvent(std::unique_ptr<app::VLMessage> message)
      : QEvent(kMessageEvent), message(std::move(message)) {}
  std::unique_ptr<app::VLMessage> message;
};

QString Q(const std::string& s) {
  return QString::fromUtf8(s.data(), qsizetype(s.size()));
}
std::string S(const QString& s) {
  return s.toUtf8().toStdString();
}

}  // namespace

QtGuiQueue::QtGuiQueue(QObject* parent) : QObject(parent) {}

void QtGuiQueue::post(std::unique_ptr<app::VLMessage> message) {
  if (!message) return;
  // postEvent is safe from any thread and takes the event's ownership.
  QCoreApplication::postEvent(this, new MessageEvent(std::move(message)));
}

bool QtGuiQueue::event(QEvent* e) {
  if (e->type() != kMessageEvent) return QObject::event(e);
  auto* m = static_cast<MessageEvent*>(e);
  std::unique_ptr<app::VLMessage> message = std::move(m->message);
  if (run)
    run([&] { message->Execute(); });
  else
    message->Execute();
  return true;
}

QString QtFilter(const std::string& filter) {
  QStringList parts = Q(filter).split('|');
  QStringList out;
  for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
    if (parts[i].isEmpty()) break;
    QString name = parts[i];
    const qsizetype paren = name.indexOf('(');
    if (paren >= 0) name = name.left(paren).trimmed();
    QString patterns = parts[i + 1];
    patterns.replace(';', ' ');
    out << name + " (" + patterns + ")";
  }
  return out.join(";;");
}

app::Answer QtDialogs::ask(const std::string& text, app::Buttons buttons, app::Icon icon) {
  QMessageBox box(parent_);
  box.setWindowTitle("Velomar");
  box.setText(Q(text));
  switch (icon) {
    case app::Icon::None:
      box.setIcon(QMessageBox::NoIcon);
      break;
    case app::Icon::Information:
      box.setIcon(QMessageBox::Information);
      break;
    case app::Icon::Question:
      box.setIcon(QMessageBox::Question);
      break;
    case app::Icon::Warning:
      box.setIcon(QMessageBox::Warning);
      break;
    case app::Icon::Error:
      box.setIcon(QMessageBox::Critical);
      break;
  }
  QMessageBox::StandardButtons set;
  switch (buttons) {
    case app::Buttons::Ok:
      set = QMessageBox::Ok;
      break;
    case app::Buttons::OkCancel:
      set = QMessageBox::Ok | QMessageBox::Cancel;
      break;
    case app::Buttons::YesNo:
      set = QMessageBox::Yes | QMessageBox::No;
      break;
    case app::Buttons::YesNoCancel:
      set = QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
      break;
  }
  box.setStandardButtons(set);
  // A question's box answers with its cancelling button when closed.
  switch (box.exec()) {
    case QMessageBox::Ok:
      return app::Answer::Ok;
    case QMessageBox::Yes:
      return app::Answer::Yes;
    case QMessageBox::No:
      return app::Answer::No;
    default:
      return buttons == app::Buttons::YesNo ? app::Answer::No : app::Answer::Cancel;
  }
}

std::optional<app::FileChoiceResult> QtDialogs::choose(const app::FileChoice& choice, bool save) {
  QFileDialog dialog(parent_, Q(choice.title));
  dialog.setNameFilter(QtFilter(choice.filter));
  dialog.setDefaultSuffix(Q(choice.default_extension));
  dialog.setAcceptMode(save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
  dialog.setFileMode(save || !choice.must_exist ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
  if (save && !choice.overwrite_prompt) dialog.setOption(QFileDialog::DontConfirmOverwrite);
  QCheckBox* box = nullptr;
  if (!choice.check_box.empty()) {
    // The platform's own dialog takes no extra controls.
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    box = new QCheckBox(Q(choice.check_box), &dialog);
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout()))
      grid->addWidget(box, grid->rowCount(), 0, 1, grid->columnCount());
  }
  for (;;) {
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    const QString path = dialog.selectedFiles().front();
    if (save && choice.path_must_exist && !QFileInfo(path).absoluteDir().exists()) {
      QMessageBox::warning(&dialog, Q(choice.title), "The folder does not exist:\n" + path);
      continue;
    }
    return app::FileChoiceResult{S(QDir::toNativeSeparators(path)), box && box->isChecked()};
  }
}

std::optional<app::FileChoiceResult> QtDialogs::choose_open_file(const app::FileChoice& choice) {
  return choose(choice, false);
}
std::optional<app::FileChoiceResult> QtDialogs::choose_save_file(const app::FileChoice& choice) {
  return choose(choice, true);
}

namespace {
class QtProgress : public app::Progress {
 public:
  QtProgress(QWidget* parent, const std::string& title)
      : dialog_(Q(title), "Cancel", 0, 100, parent) {
    dialog_.setWindowTitle(Q(title));
    dialog_.setWindowModality(Qt::WindowModal);
    dialog_.setMinimumDuration(0);
    dialog_.setAutoClose(false);
    dialog_.setAutoReset(false);
    dialog_.show();
  }
  void update(int64_t done, int64_t total, const std::string& text) override {
    // The bar counts in thousandths so that 64-bit totals fit its int range.
    dialog_.setValue(total > 0 ? int(done * 1000 / total) : 0);
    dialog_.setMaximum(1000);
    if (!text.empty()) dialog_.setLabelText(Q(text));
    QCoreApplication::processEvents();
  }
  bool cancelled() const override { return dialog_.wasCanceled(); }

 private:
  QProgressDialog dialog_;
};
}  // namespace

std::unique_ptr<app::Progress> QtDialogs::begin_progress(const std::string& title) {
  return std::make_unique<QtProgress>(parent_, title);
}

void QtDialogs::set_wait_cursor(bool busy) {
  if (busy) {
    if (busy_++ == 0) QApplication::setOverrideCursor(Qt::WaitCursor);
  } else if (busy_ > 0 && --busy_ == 0) {
    QApplication::restoreOverrideCursor();
  }
}

QtProfileStore::QtProfileStore() : settings_(std::make_unique<QSettings>("Kelvane", "Velomar")) {}
QtProfileStore::QtProfileStore(const QString& ini_path)
    : settings_(std::make_unique<QSettings>(ini_path, QSettings::IniFormat)) {}

namespace {
QString Key(const std::string& section, const std::string& key) {
  return Q(section) + "/" + Q(key);
}
}  // namespace

int64_t QtProfileStore::get_int(const std::string& section,
                                const std::string& key,
                                int64_t fallback) {
  const QVariant v = settings_->value(Key(section, key));
  if (!v.isValid()) return fallback;
  bool ok = false;
  const qlonglong n = v.toLongLong(&ok);
  return ok ? int64_t(n) : fallback;
}

std::string QtProfileStore::get_string(const std::string& section,
                                       const std::string& key,
                                       const std::string& fallback) {
  const QVariant v = settings_->value(Key(section, key));
  return v.isValid() ? S(v.toString()) : fallback;
}

void QtProfileStore::set_int(const std::string& section, const std::string& key, int64_t value) {
  settings_->setValue(Key(section, key), qlonglong(value));
}

void QtProfileStore::set_string(const std::string& section,
                                const std::string& key,
                                const std::string& value) {
  settings_->setValue(Key(section, key), Q(value));
}

bool QtClipboard::set_text(const std::string& text) {
  QClipboard* clipboard = QGuiApplication::clipboard();
  if (!clipboard) return false;
  clipboard->setText(Q(text));
  return true;
}

QByteArray Resource(const char* name) {
  InitResources();
  QFile file(QString(":/velomar/") + name);
  if (!file.open(QIODevice::ReadOnly))
    throw std::runtime_error(std::string("missing resource ") + name);
  return file.readAll();
}

namespace {

// False when the file already holds these bytes: nothing is written.
bool WriteFile(const std::string& path, const QByteArray& bytes) {
  {
    QFile old(Q(path));
    if (old.open(QIODevice::ReadOnly) && old.readAll() == bytes) return false;
  }
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  QFile file(Q(path));
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
    throw std::runtime_error("cannot write " + path + ": " + S(file.errorString()));
  return true;
}

}  // namespace

std::string DesktopEntry(const std::string& program_path) {
  std::string text = Resource("velomar.desktop").toStdString();
  // The desktop entry quotes arguments with double quotes, escaping ", `, $, \ .
  std::string quoted = "\"";
  for (char c : program_path) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
    quoted += c;
  }
  quoted += '"';
  const std::string exec = "Exec=velomar %f";
  const size_t at = text.find(exec);
  if (at != std::string::npos) text.replace(at, exec.size(), "Exec=" + quoted + " %f");
  return text;
}

FreedesktopRegistration::FreedesktopRegistration(std::string data_home)
    : data_home_(std::move(data_home)) {
  if (data_home_.empty()) {
    const QByteArray xdg = qgetenv("XDG_DATA_HOME");
    data_home_ = !xdg.isEmpty() ? xdg.toStdString() : S(QDir::homePath()) + "/.local/share";
  }
}

std::string FreedesktopRegistration::desktop_file() const {
  return data_home_ + "/applications/velomar.desktop";
}
std::string FreedesktopRegistration::mime_file() const {
  return data_home_ + "/mime/packages/velomar.xml";
}
std::string FreedesktopRegistration::icon_file() const {
  return data_home_ + "/icons/hicolor/scalable/apps/velomar.svg";
}

void FreedesktopRegistration::register_types(const std::string& program_path) {
  if (program_path.empty()) throw std::runtime_error("GetModuleFileName");
  bool changed = WriteFile(desktop_file(), QByteArray::fromStdString(DesktopEntry(program_path)));
  changed |= WriteFile(mime_file(), Resource("velomar-mime.xml"));
  changed |= WriteFile(icon_file(), Resource("velomar.svg"));
  // The databases take most of a start's second to rebuild: only on a change.
  if (changed) refresh_databases();
}

void FreedesktopRegistration::unregister_types() {
  std::error_code ignored;
  for (const std::string& file : {desktop_file(), mime_file(), icon_file()})
    std::filesystem::remove(file, ignored);
  refresh_databases();
}

void FreedesktopRegistration::refresh_databases() const {
  // Without these tools the files still count at the desktop's next scan.
  const QString mime = QStandardPaths::findExecutable("update-mime-database");
  if (!mime.isEmpty()) QProcess::execute(mime, {Q(data_home_ + "/mime")});
  const QString desktop = QStandardPaths::findExecutable("update-desktop-database");
  if (!desktop.isEmpty()) QProcess::execute(desktop, {Q(data_home_ + "/applications")});
}

}  // namespace gui
