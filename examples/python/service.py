#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""An agent in Python, on the standard library alone: it keeps repositories and jobs in memory, and a run of a job
only takes a moment. Called `tarvoconfig` in a folder of PATH, it is what clients of the agent find.
"""
import asyncio
import copy
import sys
import time
import uuid

from zamservice import Base, EventSource, main

JOB_TIME = 0.2
NIL = uuid.UUID(int=0)


def now(api):
    milliseconds = time.time_ns() // 1_000_000
    return api.SDateTime(*divmod(milliseconds, 1000))


class Control(Base):
    """The root object, and the agent itself: what the other objects share stands here."""
    interface = "IZamControl"

    def __init__(self, api):
        self.api, self.session_id, self.events = api, uuid.uuid4(), EventSource(api)
        self.owner, self.repositories, self.jobs = api.SZamControlOwnerInfo(), {}, {}
        self.last_event = self.last_usn = 0

    def publish(self, kind, **record):
        self.last_event += 1
        key, value = f"event{kind}", getattr(self.api, f"SEvent{kind}")(**record)
        self.events.publish(self.api.SBaseEvent(self.api.EEventType[kind], self.last_event, now(self.api),
                                                self.api.EEventSourceType.Owner, self.session_id, **{key: value}))

    def refuse(self, reason):
        raise self.api.CGenericException(reason)

    def RequestControl(self, owner, force):
        if owner.Id == NIL:
            self.refuse("An owner needs an id")
        if self.owner.Id not in (NIL, owner.Id) and not force:
            self.refuse(f"The agent is controlled by {self.owner.Name}")
        self.owner = owner
        return Product(self)

    def ReleaseControl(self, owner):
        if owner.Id != self.owner.Id:
            self.refuse(f"The owner {owner.Id} does not control the agent")
        self.owner = self.api.SZamControlOwnerInfo()

    def GetProductInfo(self):
        return self.api.SZamProductInfo(self.session_id, NIL, "Agent in Python", "2.0.0")

    def GetCurrentOwner(self):
        return self.owner

    def GetEventConfig(self):
        return self.api.SEventConfig(self.api.SEventConfigV1(self.events.path))

    def GetSessionId(self):
        return self.session_id

    def IsOsxFDAGranted(self):
        return False

    def close(self):
        self.events.close()


class Product(Base):
    interface = "IZamProduct"

    def __init__(self, agent):
        self.agent = agent

    def FindBackupJob(self, id):
        return self.agent.jobs.get(id)

    def GetBackupJobs(self):
        return list(self.agent.jobs.values())

    def CreateBackupJob(self, config):
        if any(job.config.JobName == config.JobName for job in self.agent.jobs.values()):
            self.agent.refuse(f"There is a job called {config.JobName} already")
        job = Job(self.agent, config)
        self.agent.jobs[job.id] = job
        self.agent.publish("BackupJobCreated", JobId=job.id, Username=self.agent.owner.Name)
        return job

    def DeleteBackupJob(self, id):
        job = self.agent.jobs.get(id)
        if job is None:
            return False
        job.require_idle()
        del self.agent.jobs[id]
        self.agent.publish("BackupJobDeleted", JobId=id, Username=self.agent.owner.Name)
        return True

    def GetRepositoryManager(self):
        return Repositories(self.agent)

    def GetSessionId(self):
        return self.agent.session_id


class Repositories(Base):
    interface = "IRepositoryManager"

    def __init__(self, agent):
        self.agent = agent

    def CreateRepository(self, info):
        info.Id = uuid.uuid4()
        if info.SharedFolderInfo:
            info.SharedFolderInfo.Password = None  # this agent has no use for it
        self.agent.repositories[info.Id] = info
        return info

    def GetRepositories(self):
        return list(self.agent.repositories.values())

    def FindRepository(self, id):
        return self.agent.repositories.get(id)


class Job(Base):
    interface = "IBackupJob"

    def __init__(self, agent, config):
        self.agent, self.config, self.id, self.sessions = agent, config, uuid.uuid4(), []

    def require_idle(self):
        if self.sessions and self.sessions[-1].is_running():
            raise self.agent.api.CJobIsRunning(f"The job {self.config.JobName} is running")

    def GetInfo(self):
        ends = [session.info.EndTimeUtc for session in self.sessions if not session.is_running()]
        return self.agent.api.SBackupJobInfo(self.id, self.config.JobName, True, ends[-1] if ends else None)

    def GetConfigurationInfo(self):
        """Passwords go in and never come out."""
        config = copy.deepcopy(self.config)
        aap = config.AapInfo
        for holder in (config.StorageInfo.EncryptionSettings,
                       *(info.Credentials for info in (aap.OracleInfo, aap.MySQLInfo, aap.PostgreSQLInfo) if info)):
            if holder:
                holder.Password = None
        return config

    def Start(self, options):
        self.require_idle()
        if self.config.RepositoryId not in self.agent.repositories:
            self.agent.refuse(f"The job {self.config.JobName} has no repository to write to")
        self.sessions.append(Session(self))
        return self.sessions[-1]

    def GetBackupJobSessions(self, usn=-1):
        return [session for session in self.sessions if session.info.Usn > usn]

    def FindLastBackupJobSession(self):
        return self.sessions[-1] if self.sessions else None


class Session(Base):
    interface = "IBackupJobSession"

    def __init__(self, job):
        self.job, self.agent, self.api = job, job.agent, job.agent.api
        self.info = self.api.SBackupJobSessionInfo(
            Uid=uuid.uuid4(), JobUid=job.id, JobName=job.config.JobName, State=self.api.JobState.Working,
            StartTimeUtc=now(self.api), TypeOfJob=self.api.JobType.Backup,
            SessionAlgorithm=self.api.JobSessionAlgorithm.Full)
        self.log("Info", "Started")
        self.mode = job.config.Source.BackupMode
        self.agent.publish("BackupJobStarted", JobId=job.id, SessionId=self.info.Uid,
                           Username=self.agent.owner.Name, JobMode=self.mode)
        self.timer = asyncio.get_running_loop().call_later(JOB_TIME, self.finish, "Success", "Success")

    def log(self, kind, message):
        self.agent.last_usn += 1
        self.info.Usn = self.agent.last_usn
        self.info.JobDetails.append(self.api.SLogDetail(self.api.ELogDetailType[kind], uuid.uuid4(), message))

    def is_running(self):
        return self.info.State != self.api.JobState.Stopped

    def finish(self, result, status):
        self.info.State, self.info.Result = self.api.JobState.Stopped, self.api.JobResult[result]
        self.info.EndTimeUtc, self.info.PercentCompleted = now(self.api), 100 if result == "Success" else 0
        self.log("Success" if result == "Success" else "Error", f"Ended: {status}")
        self.agent.publish("BackupJobFinished", JobId=self.job.id, SessionId=self.info.Uid,
                           Status=self.api.JobSessionTaskStatus[status], JobMode=self.mode)

    def GetInfo(self):
        return self.info

    def Stop(self, message):
        if not self.is_running():
            return False
        self.timer.cancel()
        self.log("Warning", f"Stop was asked for: {message}")
        self.finish("Failed", "Canceled")
        return True


if __name__ == "__main__":
    sys.exit(main("agent", Control))
