#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A client of the agent and of its installer, on Python's standard library alone.

    client.py [--tool TOOL] host          tells about this host
    client.py [--tool TOOL] follow JOB    starts a job of the agent and follows it to its end
"""
import argparse
import sys
import uuid

from zamclient import Connection, Events
from zamwire import Api, ZamError


def print_host(api, tool):
    with Connection(api, "installer", tool) as connection:
        host = connection.root.GetSystemInformation()
        print(f"{host.HostName}: {host.OsName}, kernel {host.OsKernelVersion}, {host.OsHardwarePlatform}")
        for interface in host.NetworkInterfaces:
            print(f"  {interface.Name}: {interface.Status} {' '.join(interface.IpAddresses)}")


def follow(api, tool, name):
    with Connection(api, "agent", tool) as connection:
        owner = api.SZamControlOwnerInfo(uuid.uuid4(), "client.py", api.ZAMOwnerType.Local, api.ZAMOwnerMode.Shared)
        product = connection.root.RequestControl(owner, False)
        job = next((job for job in product.GetBackupJobs() if job.GetInfo().Name == name), None)
        if job is None:
            raise SystemExit(f"client.py: the agent has no job {name}")
        # Subscribed before the job starts, so that nothing is missed.
        with Events(api, connection.root.GetEventConfig().v1.socketPath) as events:
            with job.Start(api.SJobStartOptions()) as session:
                uid = session.GetInfo().Uid
                while True:
                    event = events.read(timeout=60)
                    print(f"event {event.Id}: {event.Type}", flush=True)
                    if event.eventBackupJobFinished and event.eventBackupJobFinished.SessionId == uid:
                        break
                info = session.GetInfo()
        print(f"{info.Result}, {info.ReadSizeBytes} bytes read")
        connection.root.ReleaseControl(owner)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tables", help="the file wire.json, when it stands elsewhere than usual")
    parser.add_argument("--tool", help="the service's tool, when it is not found by its name")
    what = parser.add_subparsers(dest="what", required=True)
    what.add_parser("host")
    what.add_parser("follow").add_argument("job")
    words = parser.parse_args()
    try:
        api = Api(words.tables)
        return print_host(api, words.tool) if words.what == "host" else follow(api, words.tool, words.job)
    except (ZamError, OSError) as error:
        print(f"client.py: {type(error).__name__}: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
