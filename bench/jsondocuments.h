#ifndef VELMAR_BENCH_JSONDOCUMENTS_H
#define VELMAR_BENCH_JSONDOCUMENTS_H

#include "records/compatibilityrecords.h"

#include <string>
#include <vector>

/*! Records with values as devices and hosts exchange them, the same ones in every run. */
namespace JsonDocuments {

using CompatibilityProgress =
    std::vector<Velmar::ProtoModel::Auxiliary::s_CompatibilityUpgradePercent>;
using CompatibilityRequest =
    std::vector<Velmar::ProtoModel::Auxiliary::s_CompatibilityUpgradeDetail>;

Velmar::ProtoModel::Auxiliary::s_DeviceVersion deviceVersion(int parts);
Velmar::ProtoModel::Auxiliary::s_UpgradePercent progress(int parts);
CompatibilityProgress compatibilityProgress(int devices);
Velmar::ProtoModel::Auxiliary::s_UpgradeDetail request(int parts);
CompatibilityRequest compatibilityRequest(int parts, const std::string &filePath);

/*! The compact \a json with a line for each entry, indented by four, and a space behind colons. */
std::string indented(const std::string &json);

} // namespace JsonDocuments

#endif // VELMAR_BENCH_JSONDOCUMENTS_H
