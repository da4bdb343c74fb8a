// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CProcess.h>

#include <sys/wait.h>

#include <utility>

#include "support/common/CChildProcess.h"
#include "support/common/Text.h"

namespace apigen {

CProcessExitCode::CProcessExitCode(int waitStatus, std::string program, std::string lastWords)
    : m_waitStatus(waitStatus), m_program(std::move(program)), m_lastWords(std::move(lastWords)) {}

CProcessExitCode::operator bool() const noexcept {
    return WIFEXITED(m_waitStatus) && WEXITSTATUS(m_waitStatus) == 0;
}

bool CProcessExitCode::IsKnown() const noexcept {
    return m_waitStatus != common::CChildProcess::UnknownStatus;
}

void CProcessExitCode::GenerateException() const {
    throw ProcessFailedError(common::Quoted(m_program) + ' ' + common::EndingText(m_waitStatus) +
                             (m_lastWords.empty() ? "" : ". Its last words: " + m_lastWords));
}

}  // namespace apigen
