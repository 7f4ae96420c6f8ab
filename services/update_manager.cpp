#include "services/update_manager.h"

UpdateManager::UpdateManager(QObject* parent) : QObject(parent) {}

void UpdateManager::checkForUpdate() {}
