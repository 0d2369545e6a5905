#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace OSTREL {

// Spares the record cache a walk over all records at each entry: knows until when certainly nothing
// is due, and who is the oldest. `Map` maps a text to a value with the members m_FirstTicks and
// m_LastTicks, milliseconds that wrap at 32 bits. The caller locks.
//
// It answers exactly as the walk would, for any movement of the clock: it only speaks for a clock
// that has moved forward since the last walk, and asks for a walk in every other case.
template <class Map>
class CacheSchedule {
public:
    typedef typename Map::iterator Iterator;

    // A walk is needed: the limits have changed.
    void Invalidate() { m_IsValid = false; }

    // Notes a look at the clock at which a record was counted.
    void NoteTime(unsigned int now) {
        const unsigned int elapsed = now - m_Since;
        if (elapsed < m_Elapsed) m_IsValid = false;  // the clock went back
        m_Elapsed = elapsed;
    }

    // Notes a new record, whose two ticks are `now`.
    void Inserted(Iterator record, unsigned int now, unsigned int lifetimeMsec,
                  unsigned int staleMsec) {
        NoteTime(now);
        if (!m_IsValid) return;
        const uint64_t due = uint64_t{m_Elapsed} + std::min(lifetimeMsec, staleMsec);
        if (due < m_Quiet) m_Quiet = static_cast<unsigned int>(due);
        m_ByAge.push_back({now, now, record});
        std::push_heap(m_ByAge.begin(), m_ByAge.end(), IsYounger);
    }

    // True if no record is due. False asks for a walk.
    bool IsQuiet(unsigned int now) {
        NoteTime(now);
        return m_IsValid && m_Elapsed < m_Quiet;
    }

    // Notes that a walk at `now` has left these records, none of them due.
    void Walked(Map& records, unsigned int now, unsigned int lifetimeMsec, unsigned int staleMsec) {
        m_IsValid = true;
        m_Since = now;
        m_Elapsed = 0;
        m_Quiet = std::numeric_limits<unsigned int>::max();
        m_ByAge.clear();
        for (Iterator it = records.begin(); it != records.end(); ++it) {
            const unsigned int age = now - it->second.m_FirstTicks;
            const unsigned int idle = now - it->second.m_LastTicks;
            m_Quiet = std::min({m_Quiet, lifetimeMsec - age, staleMsec - idle});
            m_ByAge.push_back({it->second.m_FirstTicks, it->second.m_LastTicks, it});
        }
        std::make_heap(m_ByAge.begin(), m_ByAge.end(), IsYounger);
    }

    // Takes the oldest record out of the schedule: by age, then by idle time, then the later key.
    // Only right after IsQuiet said true, with at least one record. The caller erases the record.
    Iterator TakeOldest() {
        for (;;) {
            std::pop_heap(m_ByAge.begin(), m_ByAge.end(), IsYounger);
            Candidate& oldest = m_ByAge.back();
            const unsigned int lastTicks = oldest.record->second.m_LastTicks;
            if (oldest.lastTicks == lastTicks) break;
            // Repeats do not touch the heap. They only make a record less of a candidate, so it is
            // enough to put it in its present place when it comes up.
            oldest.lastTicks = lastTicks;
            std::push_heap(m_ByAge.begin(), m_ByAge.end(), IsYounger);
        }
        const Iterator record = m_ByAge.back().record;
        m_ByAge.pop_back();
        return record;
    }

private:
    struct Candidate {
        unsigned int firstTicks;
        unsigned int lastTicks;
        Iterator record;
    };

    // The ticks of records that are not due lie so close together that their order survives a wrap.
    static bool IsLater(unsigned int a, unsigned int b) { return static_cast<int32_t>(a - b) > 0; }

    static bool IsYounger(const Candidate& a, const Candidate& b) {
        if (a.firstTicks != b.firstTicks) return IsLater(a.firstTicks, b.firstTicks);
        if (a.lastTicks != b.lastTicks) return IsLater(a.lastTicks, b.lastTicks);
        return a.record->first < b.record->first;
    }

    bool m_IsValid = false;
    unsigned int m_Since = 0;    // tick of the last walk
    unsigned int m_Elapsed = 0;  // from then to the last look at the clock, msec
    unsigned int m_Quiet = 0;    // from then to the first moment at which a record may be due, msec
    std::vector<Candidate> m_ByAge;  // a heap, the oldest at its front
};

}  // namespace OSTREL
