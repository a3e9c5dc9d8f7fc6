"""Which version scripts/abi asks for after a change, and what it records: changes.py SOURCE"""
import pathlib
import shutil
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(sys.argv[1])
EXPORTS, SYMBOLS = 'src/exports.map', 'debian/libvexo-cmi1.symbols'
CHANGELOG = 'debian/changelog'
RELEASED, MINOR, MAJOR = '90.4.5', '90.5.0', '91.0.0'

# What is changed: the file, the text in it, what it becomes; the least version that says so.
CHANGES = [
    ('include/vexo_cmi/base.h', '', '', RELEASED),
    ('include/vexo_cmi/sys.h', 'tpid_get(unsigned *tpid', 'tpid_get(unsigned *value', RELEASED),
    ('include/vexo_cmi/sys.h', 'tpid_get(unsigned *tpid', 'tpid_get(uint16_t *tpid', MAJOR),
    ('include/vexo_cmi/sys.h', 'vexo_cmi_sys_tpid_get', 'vexo_cmi_sys_tpid_read', MAJOR),
    ('include/vexo_cmi/base.h', 'void vexo_cmi_fini(void);',
     'void vexo_cmi_fini(void); void vexo_cmi_more(void);', MINOR),
    ('include/vexo_cmi/ima.h', 'VEXO_IMA_LINK_MAX 8', 'VEXO_IMA_LINK_MAX 9', MAJOR),
    ('include/vexo_cmi/base.h', 'VEXO_RC_FAILURE_128 = 128', 'VEXO_RC_FAILURE_128 = 129', MAJOR),
    ('include/vexo_cmi/base.h', 'VEXO_RC_FAILURE_128 = 128',
     'VEXO_RC_FAILURE_128 = 128, VEXO_RC_FAILURE_256 = 256', MINOR),
    ('include/vexo_cmi/ima.h', 'uint32_t groupParam3;', 'int32_t groupParam3;', MAJOR),
    ('include/vexo_cmi/ima.h', 'uint32_t groupParam3;', 'uint32_t groupParam3, groupParam4;', MAJOR),
    ('include/vexo_cmi/pwe.h', 'uint32_t reserved[7];', 'uint32_t depth; uint32_t reserved[6];',
     MINOR),
    ('platform/kv_common.h', 'kvRc kv_log_clear(void);', '', MAJOR),
    ('platform/kv_common.h', 'kv_log_clear(void);', 'kv_log_empty(void);', MAJOR),
    ('platform/kv_common.h', 'kv_log_clear(void);', 'kv_log_clear(int module);', MAJOR),
    ('platform/kv_common.h', 'kvRc kv_log_clear(void);',
     'kvRc kv_log_clear(void); kvRc kv_log_flush(void);', MINOR),
]


def set_version(tree, version):
    path = tree / 'include/vexo_cmi/base.h'
    text = path.read_text()
    for part, number in zip(('MAJOR', 'MINOR', 'PATCH'), version.split('.')):
        start = text.index(f'#define VEXO_CMI_VERSION_{part} ')
        text = text.replace(text[start:text.index('\n', start)],
                            f'#define VEXO_CMI_VERSION_{part} {number}')
    path.write_text(text)
    (tree / CHANGELOG).write_text(f'vexo-cmi ({version}) unstable\n')


def abi(tree, *options, **arguments):
    return subprocess.run([sys.executable, tree / 'scripts/abi', *options], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **arguments)


def wrong(tree):
    """Everything that isn't as it should be."""
    for folder in ('include', 'platform', 'src/frame'):
        shutil.copytree(SOURCE / folder, tree / folder)
    (tree / 'scripts').mkdir()
    shutil.copy(SOURCE / 'scripts/abi', tree / 'scripts')
    shutil.copytree(SOURCE / 'tests/abi/releases', tree / 'tests/abi/releases')
    for file in (EXPORTS, SYMBOLS):
        (tree / file).parent.mkdir(exist_ok=True)
        shutil.copy(SOURCE / file, tree / file)
    # Later than all that is released.
    set_version(tree, RELEASED)
    for option in ((), ('--release',)):
        if abi(tree, *option).returncode:
            yield f'scripts/abi {option} fails'

    for file, old, new, version in CHANGES:
        path = tree / file
        text = path.read_text()
        if old not in text:
            yield f'{file} has no {old}'
        path.write_text(text.replace(old, new, 1))
        printed = abi(tree, '--check').stdout
        asked = printed.partition('asks for version ')[2].partition(';')[0] or RELEASED
        if asked != version:
            yield f'{file}: {old} -> {new}: asks for {asked}, not {version}:\n{printed}'
        path.write_text(text)

    for side, row in (('cmi', 'AT(vexoPwePsn, udpMode, vexoPweUdpMode, 28);'),
                      ('platform', 'SIZE(pwOmEntry, 24);')):
        path = tree / f'src/frame/layout_{side}.cpp'
        text = path.read_text()
        path.write_text(text.replace(row, ''))
        if f'layout_{side}.cpp lacks {row}' not in abi(tree, '--check').stdout:
            yield f'{row} is not missed'
        path.write_text(text)

    path = tree / 'include/vexo_cmi/base.h'
    path.write_text(path.read_text().replace('void vexo_cmi_fini', 'void vexo_cmi_next', 1))
    for version in (RELEASED, MAJOR):
        set_version(tree, version)
        abi(tree)
    for file, line in ((EXPORTS, '    vexo_cmi_next;'), (SYMBOLS, f' vexo_cmi_next@Base {MAJOR}')):
        recorded = (tree / file).read_text()
        if line not in recorded.splitlines() or 'vexo_cmi_fini' in recorded:
            yield f'a function renamed: {file} has no "{line}", or the old name still'
    path.write_text(path.read_text().replace('void vexo_cmi_next', 'void vexo_cmi_fini', 1))

    path.write_text(path.read_text().replace('void vexo_cmi_fini(void);', '', 1))
    for version, refused in ((RELEASED, True), ('90.9.9', True), (MAJOR, False)):
        set_version(tree, version)
        abi(tree)
        if bool(abi(tree, '--check').returncode) != refused:
            yield f'a function removed, recorded, as {version}: refused is not {refused}'
    (tree / CHANGELOG).write_text(f'vexo-cmi ({RELEASED}) unstable\n')
    if not abi(tree, '--check').returncode:
        yield f'with another version in {CHANGELOG} the check passes'
    if not abi(tree, '--chek').returncode:
        yield 'an option that there is none of passes'
    if not abi(tree, '--check', env={'PATH': str(tree)}).returncode:
        yield 'without castxml nothing is checked, and that passes'


with tempfile.TemporaryDirectory() as work:
    problems = list(wrong(pathlib.Path(work)))
print(*problems, sep='\n')
sys.exit(bool(problems))
