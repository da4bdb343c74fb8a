#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs a job and follows it to its end, whatever becomes of the agent: follow_job.py JOB SECONDS <PASSWORD_FILE"""
import contextlib
import sys
import time
import uuid

from zamclient import Connection, Events, Timeout
from zamwire import Api, Malformed, TransportError, ZamError

API = Api()
OWNER = API.SZamControlOwnerInfo(uuid.uuid4(), "follow_job", API.ZAMOwnerType.Local, API.ZAMOwnerMode.Shared)


def start(job, secret):
    config = job.GetConfigurationInfo()
    config.StorageInfo.EncryptionSettings = API.SEncryptionSettings(Password=secret)
    print(config, flush=True)  # the password is not shown
    try:
        job.UpdateConfigurationInfo(config)
        return job.Start(API.SJobStartOptions())
    except API.CJobIsRunning:  # started by a call whose answer was lost, or by somebody else
        return job.FindLastBackupJobSession()


def follow(name, secret, session, deadline):
    """Over one connection; `session` holds what an earlier one has started. Whether the run has succeeded."""
    with Connection(API, "agent", timeout=None, deadline=deadline) as connection:
        product = connection.root.RequestControl(OWNER, False)
        with Events(API, connection.root.GetEventConfig().v1.socketPath) as events:
            job = next((job for job in product.GetBackupJobs() if job.GetInfo().Name == name), None)
            if not job:
                raise ZamError(f"the agent has no job {name}")
            run = product.FindBackupJobSessionById(session[0]) if session else None
            run = run or start(job, secret)
            while True:
                info = run.GetInfo()
                session[:] = [info.Uid]
                print(info.State, f"{info.PercentCompleted}%", flush=True)
                if info.State == API.JobState.Stopped:
                    return info.Result == API.JobResult.Success
                with contextlib.suppress(Timeout):  # then a look all the same
                    events.read(timeout=1)


def main(name, seconds):
    secret, session, deadline = input(), [], time.monotonic() + float(seconds)
    while True:
        try:
            return 0 if follow(name, secret, session, deadline) else 1
        except (ZamError, OSError) as error:
            if not isinstance(error, (TransportError, Malformed, OSError)) or time.monotonic() >= deadline:
                raise SystemExit(f"follow_job.py: {error}")
            print("again:", error, flush=True)
            time.sleep(0.1)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) == 3 else __doc__)
