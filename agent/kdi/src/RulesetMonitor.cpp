#include "RulesetMonitor.h"

#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <cstring>

namespace Kdi {

namespace {

// Another program's changes may be many; what is left is read at the next occasion.
constexpr int MAX_PIECES = 64;

// Of each of these messages the first attribute is the table's name.
bool TellsOfTable(uint16_t type) {
    switch (type) {
        case NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWTABLE:
        case NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_DELTABLE:
        case NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWSET:
        case NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_DELSET:
        case NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_DELSETELEM:
            return true;
        default:
            return false;
    }
}

int FindName(const nlattr* attribute, void* name) {
    if (mnl_attr_get_type(attribute) == NFTA_TABLE_NAME &&
        mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) >= 0) {
        *static_cast<const char**>(name) = mnl_attr_get_str(attribute);
    }
    return MNL_CB_OK;
}

bool IsOfAgent(const nlmsghdr& message) {
    if (!TellsOfTable(message.nlmsg_type)) return false;
    if (message.nlmsg_len < sizeof(nlmsghdr) + sizeof(nfgenmsg)) return false;
    const char* name = nullptr;
    mnl_attr_parse(&message, sizeof(nfgenmsg), FindName, &name);
    return name && std::strcmp(name, "velm") == 0;
}

}  // namespace

RulesetMonitor::RulesetMonitor() : m_Socket(NETLINK_NETFILTER, 0) {
    m_Socket.Join(NFNLGRP_NFTABLES);
}

// What was dropped for want of room may have been of the agent's table.
bool RulesetMonitor::Changed() {
    bool changed = false;
    for (int i = 0; i < MAX_PIECES; ++i) {
        const NetlinkSocket::Received received = m_Socket.Receive();
        if (received == NetlinkSocket::Received::Nothing) break;
        if (received == NetlinkSocket::Received::Overrun) changed = true;
        while (const nlmsghdr* message = m_Socket.NextMessage())
            changed |= IsOfAgent(*message);
    }
    return changed;
}

}  // namespace Kdi
