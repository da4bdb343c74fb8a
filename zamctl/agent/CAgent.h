// SPDX-License-Identifier: Apache-2.0
/// \file
/// The agent as commands reach it: connecting, and control of it for as long as a command needs it.
#pragma once

#include <apigen/CallControl.h>
#include <zamclientlib/Connect.h>
#include <zamclientlib/ZamClientLib.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zamctl {

struct SAgentOptions {
    std::string Tool;  ///< empty: "tarvoconfig", looked up in PATH
    std::string InstallerTool;
    std::chrono::milliseconds Timeout{std::chrono::minutes(1)};  ///< of connecting, and of each call
    bool IsForced = false;                                       ///< control may be taken from another owner
    /// Asked with the present owner before control is taken by force; throws when it may not be.
    std::function<void(const zamclientlib::SZamControlOwnerInfo&)> AskForce;
};

class CAgent;

/// Control of the agent for one command: given back when this goes, unless the caller's user had it before.
class CChange {
public:
    CChange(CAgent& agent, std::shared_ptr<zamclientlib::IZamProduct> product,
            zamclientlib::SZamControlOwnerInfo owner);
    CChange(CChange&& other) noexcept;
    CChange& operator=(CChange&&) = delete;
    ~CChange();

    zamclientlib::IZamProduct* operator->() const { return m_product.get(); }
    zamclientlib::IZamProduct& operator*() const { return *m_product; }

private:
    CAgent* m_agent;  ///< none after a move
    std::shared_ptr<zamclientlib::IZamProduct> m_product;
    zamclientlib::SZamControlOwnerInfo m_owner;
};

/// The connection to the agent, made when it is first needed.
///
/// All calls end early on Ctrl-C (Interrupt.h).
class CAgent {
public:
    explicit CAgent(SAgentOptions options);
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;

    /// \throws CFailure (NoAgent)
    zamclientlib::IZamControl& Control();

    /// The product, to look at only: whoever controls the agent goes on doing so, and if nobody does, nobody does
    /// afterwards. Waits a few seconds for another zamctl that is at work.
    /// \throws CFailure (Refused) with the owner's name when an owner lets nobody look
    std::shared_ptr<zamclientlib::IZamProduct> Look();

    /// The product under control, to change things. Waits a few seconds for another zamctl.
    /// \throws CFailure (Refused) with the owner's name when control is another's
    CChange Change();

    /// Takes control for the user, beyond this command: `control take`.
    zamclientlib::SZamControlOwnerInfo Take(const std::string& name, zamclientlib::ZAMOwnerMode mode);

    /// Who the user is as an owner: the id is the same in each of his commands.
    [[nodiscard]] static zamclientlib::SZamControlOwnerInfo UserAsOwner();

    /// Drops the connection: the next call connects anew. For an agent that has been away.
    void Reconnect();

    [[nodiscard]] const SAgentOptions& Options() const { return m_options; }

    std::shared_ptr<zamclientlib::ITarvoInstaller> Installer();

private:
    friend class CChange;

    using OwnerInfo = zamclientlib::SZamControlOwnerInfo;

    std::shared_ptr<zamclientlib::IZamProduct> Request(const OwnerInfo& owner, bool isForced);
    std::shared_ptr<zamclientlib::IZamProduct> RequestInTurn(const OwnerInfo& owner, bool isToChange);
    void Release(const OwnerInfo& owner) noexcept;

    SAgentOptions m_options;
    /// Of this thread, which makes all calls; none while control is given back.
    std::optional<apigen::CCancellableCalls> m_interruptible;
    std::shared_ptr<zamclientlib::IZamControl> m_control;
    std::shared_ptr<zamclientlib::IZamProduct> m_product;
};

}  // namespace zamctl
