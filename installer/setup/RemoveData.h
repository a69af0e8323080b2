// What the service has stored in its working folder, and what of it goes with the service.
#pragma once

#include <string>

// Deletes the service's files below `programData`, but not the logs, and then the folders that are empty.
// What users have put in the service's place is handled as by a start of the service: links are removed, not
// followed. False with the last error when something could not be deleted, or a folder is not secure.
bool RemoveData(const std::string& programData);
