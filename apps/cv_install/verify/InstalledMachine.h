// Compares accounts, service, commands and product directory with the manifest of a setup.
#pragma once

#include <QStringList>

#include "verify/RecordedInstallation.h"
#include "verify/VerifyResult.h"

void CompareAccount(const AccountFacts& expected, VerifyResult& result);

// A service that an administrator stopped or disabled is as it should be. `lines` are its
// properties.
void CompareService(const QStringList& lines, VerifyResult& result);

void CompareCommands(const std::vector<std::string>& commands, VerifyResult& result);

// Compares the version of the product directory with that of the setup.
void CompareProduct(const Manifest& manifest, VerifyResult& result);

// The version of the program in a product directory. Empty, with the reason, if it is unknown. Root
// runs only a program that no other user can replace.
QString VersionOf(const std::string& productDir, QString& reason);

// True if the installation has a compute service.
bool HasService(const Manifest& manifest);
