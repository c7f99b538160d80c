#!/usr/bin/env python3
"""Runs the command blocks of the documents as they are written, page by page and in order, and compares
the output that the pages show.

    commands_test.py tree PROGRAMS    with the programs in the folder PROGRAMS, without building or installing
    commands_test.py fresh            README.md in a new clone, which it builds; needs the packages
    commands_test.py installed        the other pages with the installed packages

Every block is run in one of these modes or named in ELSEWHERE, so a new block fails the test until it is
assigned. A page's commands share a shell, in an empty folder of their own. After a program has started in
the background, the next command waits until it is ready, as a reader does.
"""

import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Its commands program the kernel, in a network namespace; only in mode `tree`.
LINUX = 'docs/linux.md'
PAGES = ['README.md', 'docs/operating.md', 'docs/porting.md', LINUX,
         *(f'packaging/man/zuskux-{name}.1.in' for name in
           ('manager', 'hal', 'record', 'generate-site', 'check-platform')),
         'packaging/man/zuskux-site.5.in']
# In seconds: until a program is ready. A page may take twice as long.
# Set by .ci/arm64. An emulated processor is slow, and its emulator does not forward next-hop objects.
EMULATED = 'ZUSKUX_EMULATED' in os.environ
PATIENCE = 600 if EMULATED else 60
FRESH_PATIENCE = 1800  # It is built first.

# Blocks that are neither output nor run in mode `tree`, by first line, and what covers them.
ELSEWHERE = {
    './test': 'this test is a part of it',
    './bench': 'stage "benchmarks" of .ci/nightly',
    './package': 'stage "Debian packages" of .ci/nightly',
    'apt-get install ./libzuskux0_*.deb ./libzuskux-dev_*.deb g++ cmake make pkg-config':
        '.ci/try_packages installs them',
    'cmake --preset release -D ZUSKUX_BUILD_REFERENCE=OFF -D ZUSKUX_BUILD_TESTS=OFF':
        'test install.vendor_platform builds and installs the library alone',
    'apt-get install ./libzuskux0_*.deb ./zuskux-tools_*.deb': '.ci/try_packages installs them',
    'find_package(zuskux 0.1 REQUIRED)': 'CMake code; examples/host has it, test install.host builds it',
    'cp -r /usr/share/doc/zuskux/examples . && cd examples/host': 'mode installed',
    'const auto& vlan = static_cast<const encapsulation::VlanMessage&>(*request->message());':
        'C++ code; test install.host builds the same',
    'zuskux-check-platform build/host': 'mode installed',
    'install -D -m 644 site.txtpb /etc/zuskux/site.txtpb':
        'tests/service/services_test.sh runs it on a system that systemd has booted',
    'missing  limid_to_type(unsigned int, unsigned char*)  (interface_ids/lim_id.h)':
        'test install.check_platform compares it',
    'zlog_init("/etc/my_host/zlog.conf");': 'C++ code; test install.host builds the same',
    'cmake --preset release -DZUSKUX_ZLOG=SYSTEM -DCMAKE_PREFIX_PATH=DIR': '.ci/system_zlog',
    '[levels]': 'a configuration; stage "a zlog of the system" of .ci/nightly reads it',
    '2024-05-17 08:15:30.123456 INFO zuskux-manager: connected to HAL server NAME, generation G':
        'a log line; its times are not stable',
    'sudo examples/linux/run': 'test linux.example runs it',
    'tcpdump -i zcpu': 'packets_test captures on zcpu, in the virtual machine',
    'sudo zuskux-hal --data-plane linux --interfaces site.txtpb': 'test linux.example runs it',
    '== ip route add 203.0.113.0/24 nhid 101': 'test linux.example checks it',
    'interface { name: "eth0" lim_id: 16777217 type: 1 ifindex: 1 }': 'test docs.site_page checks it',
}
# What the Linux page takes for granted: a site, its devices, and a VRF's table.
LINUX_MACHINE = f'''
set -e
cp {ROOT}/examples/linux/site.txtpb .
ip link set lo up
for port in 1 2; do
  ip link add eth$port type veth peer name far$port
  ip link set eth$port up
  ip link set far$port up
done
ip route add unreachable default table 10
set +e
'''
# Before these commands.
FIRST = {'ip nexthop flush proto 171': 'kill %1; wait %1'}  # "After the server has exited".
# Commands that do not end with 0.
STATUSES = {
    './run examples/sites/mistakes.txtpb': 1,
    './run examples/sites/provider_edge.txtpb --table-size 6 --explain mpls:230': 3,
}
# The start of a command.
COMMAND = re.compile(
    r'(\./(run|test|bench|package)|zuskux-|cp |sed |cmake |until |apt-get |manager=|ip |tcpdump )')
READY = r'''
settled() { grep -q ' settled: ' "$log"; }
ready() {  # ready COMMAND: waits until a program in the background is ready
  local end=$((SECONDS + patience)) socket=()
  [[ $1 =~ (--socket [^ ]+) ]] && socket=(${BASH_REMATCH[1]})
  while [ "$SECONDS" -lt "$end" ]; do
    case $1 in
      *zuskux-hal*) zuskux-hal tables "${socket[@]}" >/dev/null 2>&1 && return ;;
      *) settled && return ;;
    esac
    sleep 0.1
  done
  echo "@@ not ready: $1"
}
'''
# The parts of scripts/setup.sh that ./run needs once the programs are built.
NO_SETUP = 'install_packages() { :; }\nbuild_preset() { :; }\nBUILD_PACKAGES=()\n'


def blocks_of(page, text):
    """The blocks of a page: lists of lines. Table cells with a command count as blocks of one line."""
    if page.endswith('.in'):
        for block in re.findall(r'^\.nf\n(.*?)^\.fi', text, re.MULTILINE | re.DOTALL):
            yield [line.replace('\\-', '-') for line in block.splitlines()]
        return
    block = []
    for line in text.splitlines() + ['']:
        cell = re.match(r'\| `(\./run [^`]*)` \|', line)
        if line.startswith('    '):
            block.append(line[4:])
        elif cell:
            yield [cell[1]]
        elif block:
            yield block
            block = []


def shown_in(output, wanted):
    """Whether the wanted lines come in this order. "..." stands for any lines, or the end of a line."""
    lines = iter(output.splitlines())
    for line in wanted:
        if line != '...' and not any(
                got.rstrip() == line or (line.endswith('...') and got.startswith(line[:-3]))
                for got in lines):
            return False
    return True


class Page:
    """Runs the blocks of one page in one shell."""

    def __init__(self, name, blocks, substitutes, patience, programs_kernel=False):
        self.name, self.commands, self.shown, self.patience = name, [], {}, patience
        for block in blocks:
            if COMMAND.match(block[0]):
                self.commands += block
            else:
                self.shown[len(self.commands) - 1] = block
        self.substitutes = substitutes
        self.shell = [*(['unshare', '--net'] if programs_kernel else []), 'bash', '-c']
        self.machine = LINUX_MACHINE if programs_kernel else ''

    def script(self):
        yield READY + self.machine
        for number, command in enumerate(self.commands):
            if command in FIRST:
                yield FIRST[command]
            for word, substitute in self.substitutes.items():
                command = command.replace(word, substitute)
            yield f'echo "@@ {number}"\n{command}\nstatus=$?'
            if command.endswith('&'):
                yield f"ready '{command[:-1].strip()}'"
            yield f'echo "@@ {number} $status"'

    def run(self, folder, environment):
        """Yields what is wrong."""
        log = folder / 'log'
        with open(log, 'wb') as out:
            shell = subprocess.Popen([*self.shell, '\n'.join(self.script())], cwd=folder, stdout=out,
                                     stderr=out, stdin=subprocess.DEVNULL, start_new_session=True,
                                     env={**environment, 'log': str(log),
                                          'patience': str(self.patience)})
            try:
                shell.wait(timeout=2 * self.patience)
            except subprocess.TimeoutExpired:
                yield f'{self.name}: its commands do not end'
            finally:
                # The session is ours: the shell and what it has started.
                for number in (signal.SIGTERM, signal.SIGKILL):
                    try:
                        os.killpg(shell.pid, number)
                    except ProcessLookupError:
                        break
                    subprocess.run(['sleep', '0.3'], check=True)
        text = log.read_text(errors='replace')
        for number, command in enumerate(self.commands):
            found = re.search(rf'^@@ {number}\n(.*?)^@@ {number} (\d+)$', text, re.MULTILINE | re.DOTALL)
            wanted = STATUSES.get(command, 0)
            if not found or '@@ not ready' in found[1]:
                yield f'{self.name}: {command}: it did not get that far:\n{text[-2000:]}'
                return
            if int(found[2]) != wanted:
                yield f'{self.name}: {command}: ends with {found[2]}, not {wanted}:\n{found[1]}'
            if number in self.shown and not shown_in(found[1], self.shown[number]):
                yield (f'{self.name}: {command}: does not show\n' + '\n'.join(self.shown[number]) +
                       f'\nbut\n{found[1]}')


def tree_of(folder, programs):
    """Makes a folder with what README's commands use, without a build."""
    (folder / 'scripts').mkdir()
    (folder / 'scripts/setup.sh').write_text(NO_SETUP)
    (folder / 'run').write_bytes((ROOT / 'run').read_bytes())
    (folder / 'run').chmod(0o755)
    (folder / 'examples').symlink_to(ROOT / 'examples')
    (folder / 'build/development').mkdir(parents=True)
    (folder / 'build/development/bin').symlink_to(programs)


def can_program_kernel():
    """Whether the programs can program a kernel, in a network namespace of their own."""
    return not EMULATED and subprocess.run(['unshare', '--net', 'true'], stderr=subprocess.DEVNULL).returncode == 0


def main():
    mode = sys.argv[1]
    mistakes, seen, counts = [], set(), {'run': 0, 'output': 0, 'elsewhere': 0}
    pages = PAGES[:1] if mode == 'fresh' else PAGES[1:] if mode == 'installed' else PAGES
    for name in pages:
        blocks, reason = [], None
        for block in blocks_of(name, (ROOT / name).read_text()):
            # The output that follows belongs to the command.
            if COMMAND.match(block[0]) or block[0] in ELSEWHERE:
                reason = ELSEWHERE.get(block[0])
            seen.add(block[0])
            if reason and not (mode == 'installed' and reason == 'mode installed'):
                counts['elsewhere'] += 1
            elif not COMMAND.match(block[0]) and not blocks:
                mistakes.append(f'{name}: no test runs or compares this block:\n' + '\n'.join(block))
            else:
                counts['run' if COMMAND.match(block[0]) else 'output'] += 1
                blocks.append(block)
        with tempfile.TemporaryDirectory(prefix='zuskux-docs-') as path:
            folder = pathlib.Path(path)
            runtime = folder / 'runtime'
            environment = {**os.environ, 'XDG_RUNTIME_DIR': str(runtime)}
            data = {'@CMAKE_INSTALL_FULL_DATADIR@': '/usr/share'}
            if mode == 'tree':
                programs = pathlib.Path(sys.argv[2]).resolve()
                environment['PATH'] = f'{programs}:{os.environ["PATH"]}'
                data = {f'{share}/zuskux/sites': str(ROOT / 'examples/sites')
                        for share in ('/usr/share', '@CMAKE_INSTALL_FULL_DATADIR@')}
                tree_of(folder, programs)
            elif mode == 'fresh':
                subprocess.run(['git', 'clone', '-q', str(ROOT), str(folder / 'clone')], check=True)
                folder /= 'clone'
                environment['PATH'] = f'{folder}/build/development/bin:{os.environ["PATH"]}'
            runtime.mkdir(mode=0o700)
            patience = FRESH_PATIENCE if mode == 'fresh' else PATIENCE
            before = set(os.listdir(folder))
            if name == LINUX and not (mode == 'tree' and can_program_kernel()):
                print(f'{name}: skipped, needs a network namespace and no emulator')
                continue
            mistakes += Page(name, blocks, data, patience, name == LINUX).run(folder, environment)
            if name == 'README.md':
                # A clone ignores what is in build/.
                mistakes += [f'{name}: leaves {left} in the clone'
                             for left in sorted(set(os.listdir(folder)) - before - {'build', 'log'})]
    if mode == 'tree':
        mistakes += [f'ELSEWHERE has a block that no page has: {line}'
                     for line in ELSEWHERE if line not in seen]
    for mistake in mistakes:
        print(mistake)
    print(f'{counts["run"]} blocks run, {counts["output"]} outputs compared, '
          f'{counts["elsewhere"]} blocks that others run, {len(mistakes)} mistakes')
    sys.exit(1 if mistakes else 0)


if __name__ == '__main__':
    main()
