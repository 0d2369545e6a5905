// CSSLCertThread: what it takes from the driver and what it sends back.

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include <wx/log.h>

#include "DriverHandle.h"
#include "SSLCertThread.h"
#include "Trace.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

const wchar_t* const s_Trace = L"plg.ostrel.SSLCertThread";

// The most that an item of the queue may take, header included.
constexpr size_t kItemSizeMax = 65536;
constexpr unsigned int kDataLenMax = kItemSizeMax - sizeof(ssl_request_st);

}  // namespace

bool CSSLCertThread::ProcessDriverData(kdi_handle_t handle, ssl_request_st* request,
                                       unsigned char* data, unsigned int dataLen) {
    OSTREL_TRACE(s_Trace, "ProcessDriverData(dataLen=%u)", dataLen);
    if (dataLen < request->preMasterLen) {
        wxLogWarning("SSL decryption request contained bad data: preMasterLen=%d, dataLen=%u",
                     static_cast<int>(request->preMasterLen), dataLen);
        return !m_Dom.ShouldExit(0, nullptr);
    }
    if (dataLen > kDataLenMax) {
        wxLogError(
            "CSSLCertThread::ProcessDriverData() - SSL decryption request too large: "
            "dataLen=%u",
            dataLen);
        SendSSLCertResponse(handle, request, nullptr, 0);
        return !m_Dom.ShouldExit(0, nullptr);
    }
    const unsigned int queueLength = QueueRequest(handle, request, data, dataLen);
    if (queueLength > 0) {
        ManageWorkerThreads(queueLength);
        SignalWorker();
    }
    TraceQueue(queueLength > 0 ? 1 : 0);
    return !m_Dom.ShouldExit(0, nullptr);
}

unsigned int CSSLCertThread::QueueRequest(kdi_handle_t handle, const ssl_request_st* request,
                                          const unsigned char* data, unsigned int dataLen) {
    const wxMutexLocker lock(m_QueueMutex);
    if (m_WorkQueue.size() >= m_QueueSizeMax) {
        SendSSLCertResponse(handle, request, nullptr, 0);
        wxLogError("CSSLCertThread::ProcessDriverData() - SSL decryption queue size exceeded.");
        return 0;
    }
    std::string item(reinterpret_cast<const char*>(request), sizeof(ssl_request_st));
    if (dataLen > 0) item.append(reinterpret_cast<const char*>(data), dataLen);
    m_WorkQueue.push_back(std::move(item));
    return static_cast<unsigned int>(m_WorkQueue.size());
}

void CSSLCertThread::SignalWorker() {
    const wxMutexLocker lock(m_ConditionMutex);
    if (m_Condition->Signal() != wxCOND_NO_ERROR) {
        wxLogSysError("CSSLCertThread::ProcessDriverData() - error signalling condition variable.");
    }
}

void CSSLCertThread::TraceQueue(unsigned int addedCount) {
    if (!m_TraceEnabled) return;
    const wxMutexLocker lock(m_QueueMutex);
    OSTREL_TRACE(s_Trace, "Added %u items to the queue.  Queue size is currently %u", addedCount,
                 static_cast<unsigned int>(m_WorkQueue.size()));
}

bool CSSLCertThread::SendSSLCertResponse(kdi_handle_t handle, const ssl_request_st* request,
                                         const void* data, unsigned int dataLen) {
    // The four bytes behind the data stay zero, and belong to the size.
    const size_t size = sizeof(ssl_response_st) + dataLen;
    const std::unique_ptr<unsigned char[]> record(new (std::nothrow) unsigned char[size]());
    if (record == nullptr) return false;
    auto* response = reinterpret_cast<ssl_response_st*>(record.get());
    memcpy(response->connectionContext, request->connectionContext,
           sizeof response->connectionContext);
    if (dataLen != 0) {
        response->dataLen = dataLen;
        memcpy(&record[offsetof(ssl_response_st, data)], data, dataLen);
    }
    if (handle == nullptr) return false;
    if (m_TraceEnabled) {
        OSTREL_TRACE(s_Trace, "SendSSLCertResponse() - sending %u byte response to driver",
                     static_cast<unsigned int>(size));
    }
    const int result = kdi_ssl_response(handle, response, static_cast<unsigned int>(size));
    if (m_TraceEnabled)
        OSTREL_TRACE(s_Trace, "SendSSLCertResponse() - driver responded with rc=%d", result);
    if (result == 0) return true;
    const wxString reason = DriverError(handle);
    wxLogError("kdi_ssl_response(): %s", reason);
    m_Dom.AgentEventWrite(1001, "SSL_RESPONSE|%d|%s", result, reason);
    return false;
}

}  // namespace OSTREL
