"""Writes the system call filter of a default container to standard output, as a BPF program for bwrap --seccomp.

Everything is allowed except creating namespaces and mounts. clone3 fails as if it did not exist, because a filter
cannot read its flags; libc then uses clone.
"""

import errno
import platform
import sys

import seccomp

NAMESPACES = 0x7E020000  # CLONE_NEWNS, NEWCGROUP, NEWUTS, NEWIPC, NEWUSER, NEWPID, NEWNET
REFUSED = ["unshare", "setns", "mount", "umount2", "pivot_root", "open_tree", "move_mount", "fsopen", "fsconfig",
           "fsmount", "fspick", "mount_setattr"]

rules = seccomp.SyscallFilter(seccomp.ALLOW)
if platform.machine() == "x86_64":
    # As container runtimes do. Otherwise a program that makes a system call of one of these architectures would be
    # killed; proot makes such a call in order to skip a system call.
    rules.add_arch(seccomp.Arch.X86)
    rules.add_arch(seccomp.Arch.X32)
for name in REFUSED:
    rules.add_rule(seccomp.ERRNO(errno.EPERM), name)
for bit in range(32):
    if NAMESPACES >> bit & 1:
        rules.add_rule(seccomp.ERRNO(errno.EPERM), "clone", seccomp.Arg(0, seccomp.MASKED_EQ, 1 << bit, 1 << bit))
rules.add_rule(seccomp.ERRNO(errno.ENOSYS), "clone3")
rules.export_bpf(sys.stdout)
