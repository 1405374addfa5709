// Headers that most tests include.
#pragma once

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>
