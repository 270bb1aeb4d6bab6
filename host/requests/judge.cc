// All lines are read first, because later requests replace earlier ones, also those of other files.
#include "host/requests/judge.h"

#include <algorithm>

#include "host/base/checksum.h"
#include "host/base/input.h"
#include "host/base/safe_text.h"
#include "host/requests/judge_values.h"

namespace host {
namespace {

struct JudgedLine {
    RequestReport report{};
    Request request{};
    std::string remark{};  // the worst one
    std::string unread{};  // about a part that is not read
};

std::string asked_text(const Request &request) {
    return request.mps ? text_of(*request.mps) : request.ecrc ? text_of(*request.ecrc) : "";
}

JudgedLine judged_line(const std::string &file, const FeatureLine &line, const MachineView &view,
                       Remarks &remarks) {
    JudgedLine judged;
    judged.request = read_request(line, &view.machine, remarks);
    judged.remark = remarks.worst(line.number);
    judged.unread = remarks.unread_part(line.number);
    judged.report = {.file = file,
                     .line = line.number,
                     .text = line.text,
                     .keyword = line.keyword,
                     .value = line.value,
                     .asked = asked_text(judged.request)};
    const Request &request = judged.request;
    judged.report.is_named =
        (request.mps && request.mps->bdf != BDF_NONE) ||
        (request.ecrc && request.ecrc->selection.scope != enable_features::scope_t::every_function);
    if (!judged.request.mps && !judged.request.ecrc) {
        const bool is_known =
            line.row == enable_features::ROW_FB2B || line.row == enable_features::ROW_ASPM;
        judged.report.status =
            is_known && line.counts() ? RequestStatus::REFUSED : RequestStatus::DROPPED;
        judged.report.reason = judged.remark;
    }
    return judged;
}

std::vector<JudgedLine> judged_lines(std::span<const FeatureFile> files, const MachineView &view) {
    std::vector<JudgedLine> judged;
    for (const FeatureFile &file : files) {
        if (!file.unusable.empty())
            judged.push_back({.report = {.file = file.name,
                                         .status = RequestStatus::DROPPED,
                                         .reason = file.unusable}});
        Remarks remarks;
        for (const FeatureLine &line : read_lines(file.text, remarks))
            judged.push_back(judged_line(file.name, line, view, remarks));
    }
    return judged;
}

void judge_lines(std::vector<JudgedLine> &lines, const MachineView &view) {
    std::vector<Judged<MpsRequest>> mps;
    std::vector<Judged<EcrcRequest>> ecrc;
    for (JudgedLine &line : lines) {
        if (line.request.mps)
            mps.push_back({*line.request.mps, line.report,
                           line.request.mps->can_be_set() ? "" : line.remark});
        if (line.request.ecrc)
            ecrc.push_back({*line.request.ecrc, line.report, ""});
    }
    judge_requests(mps, view);
    judge_requests(ecrc, view);
}

}  // namespace

FeatureFile open_feature_file(const std::filesystem::path &file) {
    try {
        return {.name = file.string(), .text = read_feature_file(file), .unusable = ""};
    } catch (const InputError &error) {
        return {.name = file.string(), .text = "", .unusable = error.what()};
    }
}

std::vector<FileChecksum> checksums_of(std::span<const FeatureFile> files) {
    std::vector<FileChecksum> checksums;
    for (const FeatureFile &file : files)
        if (const std::string name = safe_text(file.name);
            file.unusable.empty() &&
            std::ranges::find(checksums, name, &FileChecksum::file) == checksums.end())
            checksums.push_back({name, checksum(file.text)});
    return checksums;
}

std::vector<RequestReport> judge(std::span<const FeatureFile> files, const MachineView &view) {
    std::vector<JudgedLine> lines = judged_lines(files, view);
    judge_lines(lines, view);
    std::vector<RequestReport> reports;
    for (JudgedLine &line : lines) {
        if (line.report.status == RequestStatus::REACHED && !line.unread.empty()) {
            line.report.status = RequestStatus::PARTLY_READ;
            line.report.reason = line.unread;
        }
        reports.push_back(std::move(line.report));
    }
    return reports;
}

std::string fault_text(const RequestReport &request) {
    if (request.line == 0)
        return request.reason;
    const std::string asked = request.asked.empty() ? "" : " (" + request.asked + ")";
    std::string status = status_word(request.status);
    std::ranges::replace(status, '_', ' ');
    return request.file + ":" + std::to_string(request.line) + ": " + excerpt(request.text) +
           asked + " is " + status + ": " + request.reason;
}

}  // namespace host
