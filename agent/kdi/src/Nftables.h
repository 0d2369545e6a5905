#pragma once

#include <memory>
#include <string>

struct nft_ctx;

namespace Kdi {

// Commands to nftables, each buffer of them one transaction: all of it or nothing.
class Nftables {
public:
    // Throws std::runtime_error.
    Nftables();

    // 0 or an errno value, and then Error() has the words. Listings are JSON.
    int Run(const std::string& commands);
    // What the last command printed. Valid until the next one.
    const char* Output() const;
    const std::string& Error() const { return m_Error; }

private:
    struct Freer {
        void operator()(nft_ctx* context) const;
    };

    std::unique_ptr<nft_ctx, Freer> m_Context;
    std::string m_Error;
};

}  // namespace Kdi
