#include "Nftables.h"

#include <nftables/libnftables.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace Kdi {

namespace {

// The library keeps tables of its own that all contexts share.
std::mutex s_Library;

// The library tells errors in words only.
int ErrorNumber(const std::string& text) {
    for (const int error : {EPERM, ENOENT, ENFILE, ENOMEM, ENOBUFS, ENOSPC, EBUSY, EMSGSIZE, EEXIST,
                            EINVAL, EOPNOTSUPP, EAFNOSUPPORT}) {
        if (text.find(std::strerror(error)) != std::string::npos) return error;
    }
    return EIO;
}

// The first line says what is wrong, the others where.
std::string FirstLine(const std::string& text) {
    const size_t start = text.find("Error: ");
    const std::string line = start == std::string::npos ? text : text.substr(start + 7);
    return line.substr(0, line.find('\n'));
}

}  // namespace

void Nftables::Freer::operator()(nft_ctx* context) const {
    const std::lock_guard<std::mutex> lock(s_Library);
    nft_ctx_free(context);
}

Nftables::Nftables() {
    const std::lock_guard<std::mutex> lock(s_Library);
    m_Context.reset(nft_ctx_new(NFT_CTX_DEFAULT));
    if (!m_Context) throw std::runtime_error("cannot use nftables");
    nft_ctx_buffer_output(m_Context.get());
    nft_ctx_buffer_error(m_Context.get());
    nft_ctx_output_set_flags(m_Context.get(), NFT_CTX_OUTPUT_JSON);
}

int Nftables::Run(const std::string& commands) {
    const std::lock_guard<std::mutex> lock(s_Library);
    m_Error.clear();
    if (nft_run_cmd_from_buffer(m_Context.get(), commands.c_str()) == 0) return 0;
    const std::string text = nft_ctx_get_error_buffer(m_Context.get());
    m_Error = FirstLine(text);
    return ErrorNumber(text);
}

const char* Nftables::Output() const {
    return nft_ctx_get_output_buffer(m_Context.get());
}

}  // namespace Kdi
