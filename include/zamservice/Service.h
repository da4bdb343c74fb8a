// SPDX-License-Identifier: Apache-2.0
/// \file
/// The service's end of the wire: serves C++ objects to clients of the library.
#pragma once

#include <apigen/Export.h>
#include <apigen/IIoDev.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Installer.h>

#include <functional>
#include <memory>
#include <string>

namespace zamservice APIGEN_API {

class CService;
APIGEN_API void Serve(CService& service, apigen::IIoDev& device);

/// The objects that one client can reach, and the calls on them.
///
/// Objects that a method returns get a handle of their own each time and live until the client releases it,
/// or until the service ends. A call that would give the client more objects than the limit fails, and none of them
/// is kept. An exception of the implementation reaches the client as what it is when it is
/// one of zamclientlib/Exceptions.h, as a `CGenericException` with its text otherwise. One thread at a time.
class CService {
public:
    /// An installer's service; `root` is the object that the greeting names.
    CService(std::shared_ptr<zamclientlib::ITarvoInstaller> root);  // NOLINT: a root is a service
    /// An agent's service.
    CService(std::shared_ptr<zamclientlib::IZamControl> root);  // NOLINT: likewise
    /// What was moved from is good for nothing but to be destroyed or assigned to.
    CService(CService&&) noexcept;
    /// \copydoc CService(CService&&)
    CService& operator=(CService&&) noexcept;
    ~CService();

    /// The message that the service begins with: it names the root object.
    [[nodiscard]] std::string Greeting() const;

    /// Carries out one request and returns the answer. Never throws for what a client sends: a request that
    /// can't be understood is answered with an error.
    [[nodiscard]] std::string Answer(const std::string& request);

    /// How many objects the client holds, the root included.
    [[nodiscard]] std::size_t ObjectCount() const noexcept;

    /// The limit unless `SetObjectLimit` says otherwise.
    static constexpr std::size_t DefaultObjectLimit = 2'000'000;

    /// How many objects the client may hold, the root included.
    void SetObjectLimit(std::size_t limit) noexcept;

private:
    friend void Serve(CService& service, apigen::IIoDev& device);
    void Answer(std::string_view request, std::string& answer);

    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// Answers one request in place of `CService::Answer`, which it may call.
using AnswerFunction = std::function<std::string(CService& service, const std::string& request)>;

/// Greets the client at the other end of `device` and answers it until it closes the stream.
///
/// The device may be a `CInterruptibleIoDev` on a socket, or on two descriptors that somebody has handed over, whose
/// event ends the serving. Clients that are served at the same time need a service and a thread each.
/// \throws what the device throws for anything but the orderly end of the stream; an end in the middle of a message
///         is none
APIGEN_API void Serve(CService& service, apigen::IIoDev& device);
/// \overload
/// \param answer when it throws, the serving ends with that
APIGEN_API void Serve(CService& service, apigen::IIoDev& device, const AnswerFunction& answer);

/// Serves one client over the standard streams of this process until it closes them. For `main`.
///
/// Takes the streams over first: afterwards standard input is empty for everybody else, and what a library
/// prints on standard output goes to standard error, never into the stream. They may be non-blocking, and standard
/// error may be closed. From then on SIGPIPE is ignored.
/// \param makeService makes the service; when it throws, the client is greeted with the failure
/// \return the exit code: 0 after an orderly end.
[[nodiscard]] APIGEN_API int ServeStandardStreams(const std::function<CService()>& makeService);

/// Prints the document in which a tool reports its protocol's version, as a client asks for it before it
/// connects. For `main`.
/// \return the exit code
[[nodiscard]] APIGEN_API int PrintProtocolVersion();
/// \overload
/// For another version than the kit's own.
[[nodiscard]] APIGEN_API int PrintProtocolVersion(const zamclientlib::SVersion& version);

/// As above, for a service that has a say in its answers: to watch, to delay, to change them.
/// \param answer when it throws, the connection ends
[[nodiscard]] APIGEN_API int ServeStandardStreams(const std::function<CService()>& makeService,
                                                  const AnswerFunction& answer);

}  // namespace zamservice
