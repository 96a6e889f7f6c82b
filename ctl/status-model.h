// From the service's snapshot to the records of "baywardctl status".
#pragma once

#include <string>
#include <vector>

#include "message-format.h"
#include "status-report.h"
#include "storage-model.h"

// What the service says about each item is decided by its own rules, as if the item had just entered its
// state; the sentences are those of the language, else of the default one. Texts lose their control
// characters. Throws CtlError when a rule fails.
std::vector<SystemStatus> DescribeSystems(const ServiceRoot& snapshot,
                                          const tova_service::MessageCatalogue& catalogue,
                                          const std::string& language);

enum class ItemKind { kController, kDrive, kLogicalDrive };

// How bad an item is: what the service says about it, and what it does not report but a person wants to see
// (a degraded logical drive, a drive that is disabled). A drive that is "StandbyOffline" is a good one that
// no logical drive uses; a logical drive in that state is gone.
Level ItemLevel(ItemKind kind, const std::string& health, const std::string& state,
                const std::vector<ReportedState>& reported);

// Numbers in the texts count as numbers: "1I:1:2" comes before "1I:1:10".
bool ComesBefore(const std::string& left, const std::string& right);
