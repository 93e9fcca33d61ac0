// SPDX-License-Identifier: GPL-3.0-or-later
// Widgets need an application object before the first one is made; without a
// chosen display they draw offscreen, so the suite runs on a machine with no X.
#include <gmock/gmock.h>

#include <QApplication>

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM") && !qEnvironmentVariableIsSet("DISPLAY"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
