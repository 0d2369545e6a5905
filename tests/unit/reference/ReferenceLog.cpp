#include "ReferenceLog.h"

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <iterator>

namespace Reference {

int Log::InterfaceId(int index, const Configuration& configuration) {
    if (index == m_LastIndex) return m_LastId;
    m_LastIndex = index;
    const auto known = configuration.interfaceIds.find(index);
    if (known != configuration.interfaceIds.end()) m_LastId = known->second;
    return m_LastId;
}

bool Log::Write(const Entry& entry, const Configuration& configuration, uint32_t ticks) {
    const RecordBytes bytes = entry.Bytes();
    const int index = static_cast<int>(entry.fixed.log_if_index);
    const std::string text = RecordText(bytes, InterfaceId(index, configuration));
    if (!IsToBeLogged(entry, configuration, ticks)) return false;
    return CacheRecord(text, FirstTime(bytes.fixed), LastTime(bytes.fixed),
                       entry.fixed.log_repeat_count, ticks);
}

bool Log::IsToBeLogged(const Entry& entry, const Configuration& configuration, uint32_t ticks) {
    const int reason = entry.fixed.log_reason;
    if (isConfigurationNew) {
        isConfigurationNew = false;
        if (!Refresh(reason >= 0, configuration, ticks)) return false;
    }
    if (reason == -5000 || reason == -5010) {
        Notice(reason == -5000 ? 1 : 2);
        return false;
    }
    if (reason == 10000 || reason == 10001) return false;
    if (entry.fixed.log_dpi_flags & 0x40) return false;
    return !m_Ignored || !Contains(*m_Ignored, entry.fixed.log_ip.v4.iph_src);
}

bool Log::Refresh(bool isPacketLog, const Configuration& configuration, uint32_t ticks) {
    if (!configuration.hasPacketFilterLog) return false;
    ReadIgnored(configuration);
    if (configuration.size.value_or(0) > 0) files.sizeKB = *configuration.size;
    if (configuration.keep.value_or(0) > 0) files.copies = *configuration.keep - 1;
    SetCacheParameters(static_cast<uint32_t>(configuration.cacheSize.value_or(0)),
                       static_cast<uint32_t>(configuration.cacheLifetime.value_or(0)),
                       static_cast<uint32_t>(configuration.cacheStaletime.value_or(0)), ticks);
    return !isPacketLog || (configuration.hasTrafficAnalysis && configuration.hasProbes);
}

void Log::ReadIgnored(const Configuration& configuration) {
    m_Ignored.reset();
    if (!configuration.ignoredItems) return;
    std::vector<AddressEntry> entries;
    if (ParseAddresses(*configuration.ignoredItems, "ignored", entries, traces.events)) {
        m_Ignored = entries;
    }
}

void Log::Notice(int state) {
    if (state == m_State) return;
    m_State = state;
    traces.settings["VmProtection"] = state;
    ++heartbeats;
}

bool Log::CacheRecord(const std::string& text, long long firstTime, long long lastTime,
                      uint32_t count, uint32_t ticks) {
    const auto found = m_Records.find(text);
    if (found == m_Records.end()) {
        m_Records[text] = {ticks, firstTime, ticks, lastTime, count};
    } else {
        Record& record = found->second;
        record.count += count;
        record.lastTicks = ticks;
        if (firstTime < record.firstTime) record.firstTime = firstTime;
        if (lastTime > record.lastTime) record.lastTime = lastTime;
    }
    return Flush(false, ticks);
}

bool Log::Flush(bool force, uint32_t ticks) {
    bool ok = true;
    auto oldest = m_Records.end();
    uint32_t oldestAge = 0;
    uint32_t oldestIdle = 0;
    for (auto it = m_Records.begin(); it != m_Records.end();) {
        if (!force) {
            const uint32_t age = ticks - it->second.firstTicks;
            const uint32_t idle = ticks - it->second.lastTicks;
            if (age >= oldestAge && (idle >= oldestIdle || age > oldestAge)) {
                oldest = it;
                oldestAge = age;
                oldestIdle = idle;
            }
            if (age < m_Lifetime && idle < m_Stale) {
                ++it;
                continue;
            }
        }
        if (!WriteLine(it->first, it->second)) ok = false;
        if (it == oldest) {
            oldest = m_Records.end();
            oldestAge = 0;
            oldestIdle = 0;
        }
        it = m_Records.erase(it);
    }
    if (m_Records.size() > m_Size) {
        if (oldest == m_Records.end()) {
            ++traces.lostOldest;
        } else {
            if (!WriteLine(oldest->first, oldest->second)) ok = false;
            m_Records.erase(oldest);
        }
    }
    if (!files.CloseAndRotate()) ok = false;
    return ok;
}

bool Log::WriteLine(const std::string& text, const Record& record) {
    const time_t seconds = static_cast<time_t>(record.firstTime / 1000000);
    tm local;
    localtime_r(&seconds, &local);
    char before[64];
    snprintf(before, sizeof before, "%d/%02d/%02d, %02d:%02d:%02d, ", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    char behind[96];
    snprintf(behind, sizeof behind, ", %u, %" PRIu64 ", %" PRIu64 "\n", record.count,
             static_cast<uint64_t>(record.lastTime), static_cast<uint64_t>(record.firstTime));
    return files.WriteLine(before + text + behind);
}

void Log::SetCacheParameters(uint32_t size, uint32_t lifetime, uint32_t stale, uint32_t ticks) {
    m_Size = std::min<uint32_t>(size, 1024);
    if (m_Size == 0) {
        m_Lifetime = 0;
        m_Stale = 0;
    } else {
        m_Lifetime = std::clamp<uint32_t>(lifetime, 60000, 3600000);
        m_Stale = stale < 10000 ? 10000 : std::min(stale, m_Lifetime);
    }
    while (Flush(false, ticks) && m_Records.size() > m_Size) {
    }
}

}  // namespace Reference
