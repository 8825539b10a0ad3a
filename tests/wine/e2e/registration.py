"""What registration must leave in the registry (written out here, not taken from the executable's REGISTRY
resources) and how to read it back from a prefix; run as a script, it lists it for the native suite."""
import sys

from winetest import build_file

SERVICE = "Tarnwick Hot Folders"
APPID = "{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}"
CLSID = "{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}"
LIBID = "{524F5CA9-889F-479E-9DCC-E15F61C695AC}"
IID = "{4D84CADB-50A1-44A9-8D74-E31D15EB6A8A}"
UNIVERSAL_MARSHALER = "{00020424-0000-0000-C000-000000000046}"
EVENT_SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\Eventlog\Application" "\\" + SERVICE
SERVICE_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services" "\\" + SERVICE
SERVICE_RUNNING, SERVICE_STOPPED = "4", "1"

# The AccessPermission security descriptor, byte for byte.
ACCESS_PERMISSION = bytes.fromhex(
    "01 00 04 80 58 00 00 00 68 00 00 00 00 00 00 00 14 00 00 00 02 00 44 00 03 00 00 00 00 00 14 00 "
    "03 00 00 00 01 01 00 00 00 00 00 01 00 00 00 00 00 00 14 00 07 00 00 00 01 01 00 00 00 00 00 05 "
    "0a 00 00 00 00 00 14 00 03 00 00 00 01 01 00 00 00 00 00 05 12 00 00 00 01 02 00 00 00 00 00 05 "
    "20 00 00 00 20 02 00 00 01 02 00 00 00 00 00 05 20 00 00 00 20 02 00 00")


def sz(text):
    return ("REG_SZ", text)


def tables(executable, service=False, local_service=True):
    """The two tables as `Prefix.reg_tree` gives them, by key below the classes root; after "Service" the AppID key
    also holds the module's own values (LocalService unless -RegServer took it away)."""
    name, prog_id = sz("FolderService Class"), sz("Tarnwick.FolderService.1")
    appid = {"": sz("TarnwickHotFolder")}
    if service:
        appid.update({"LocalService": sz(SERVICE)} if local_service else {},
                     AccessPermission=("REG_BINARY", ACCESS_PERMISSION.hex().upper()))
    return {
        "AppID\\" + APPID: {"": appid},
        r"AppID\TarnwickHotFolder.EXE": {"": {"AppID": sz(APPID)}},
        "Tarnwick.FolderService.1": {"": {"": name}, "CLSID": {"": sz(CLSID)}},
        "Tarnwick.FolderService": {"": {"": name}, "CLSID": {"": sz(CLSID)}, "CurVer": {"": prog_id}},
        "CLSID\\" + CLSID: {
            "": {"": name, "AppID": sz(APPID)}, "ProgID": {"": prog_id},
            "VersionIndependentProgID": {"": sz("Tarnwick.FolderService")}, "Programmable": {},
            "LocalServer32": {"": sz(f'"{executable}"')}, "TypeLib": {"": sz(LIBID)},
        },
    }


def event_source(executable):
    return {"": {"EventMessageFile": sz(executable), "TypesSupported": ("REG_DWORD", "0x7"),
                 "CategoryMessageFile": sz(executable), "CategoryCount": ("REG_DWORD", "0x3")}}


def installed_service(prefix, state=False):
    """The service's configuration (or `state`) as hf_service_config.exe reads it; None when it is not installed."""
    result = prefix.wine(str(build_file("tests", "wine", "e2e", "hf_service_config.exe")), SERVICE, check=False)
    if result.returncode != 0:
        return None
    configuration = dict(line.split("=", 1) for line in result.stdout.splitlines())
    if "dependency" not in configuration:
        # Wine's QueryServiceConfigW gives no dependencies; its manager keeps them, as Windows does, in SERVICE_KEY.
        kind, names = prefix.reg_tree(SERVICE_KEY)[""].get("DependOnService", (None, ""))
        if kind == "REG_MULTI_SZ" and names:
            configuration["dependency"] = names
    return configuration["state"] if state else {k: v for k, v in configuration.items() if k != "state"}


def registered_type_library(prefix, classes_root):  # None when neither its key nor its interface's is there
    library = prefix.reg_tree(classes_root + r"\TypeLib" "\\" + LIBID) or {}
    interface = prefix.reg_tree(classes_root + r"\Interface" "\\" + IID) or {}
    return (library or interface or None) and {
        "name": library.get("1.0", {}).get(""), "file": library.get(r"1.0\409\win32", {}).get(""),
        "marshaler": interface.get("ProxyStubClsid32", {}).get(""), "library": interface.get("TypeLib", {})}


def registration(prefix, executable):
    """Everything "-Service" writes, as the prefix holds it (the service's state aside)."""
    snapshot = {key: prefix.reg_tree("HKCR\\" + key) for key in tables(executable)}
    return dict(snapshot, events=prefix.reg_tree(EVENT_SOURCE), library=registered_type_library(prefix, "HKCR"),
                service=installed_service(prefix))


def service_registration(executable):  # what registration() gives after "Service"
    return dict(tables(executable, service=True), events=event_source(executable), service={
        "type": "16", "start": "2", "error": "1", "path": f'"{executable}"', "dependency": "RPCSS",
        "account": "LocalSystem", "display": SERVICE}, library={
        "name": sz("TarnwickHotFolder 1.0 Type Library"), "file": sz(executable), "marshaler": sz(UNIVERSAL_MARSHALER),
        "library": {"": sz(LIBID), "Version": sz("1.0")}})


def serve_type_library_to_wine(prefix):
    """Wine's marshaler looks type libraries up under locale 0 only (tests/wine/README.md)."""
    library = r"HKCR\TypeLib" "\\" + LIBID + r"\1.0"
    prefix.wine("reg", "copy", library + r"\409", library + r"\0", "/s", "/f")


def listing(trees):
    """`trees` as RegistrationTest.cpp lists a registry branch (its Listing); DWORDs are little-endian there."""
    keys = {(key + "\\" + sub).rstrip("\\").upper(): values
            for key, subs in trees.items() for sub, values in subs.items()}
    lines = set(keys) | {key.rsplit("\\", 1)[0] for key in keys}
    for key, values in keys.items():
        for name, (kind, data) in values.items():
            data = int(data, 16).to_bytes(4, "little").hex() if kind == "REG_DWORD" else data
            number = {"REG_SZ": 1, "REG_BINARY": 3, "REG_DWORD": 4}[kind]
            lines.add(f"{key}|{name}={number}:" + (data if kind == "REG_SZ" else data.lower()))
    return lines


if __name__ == "__main__":  # the listing argv[1] names, for the executable argv[2], as the native suite checks it
    name, executable = sys.argv[1:]
    trees = {"server": tables(executable), "service": tables(executable, service=True),
             "service-then-server": tables(executable, service=True, local_service=False),
             "events": {SERVICE: event_source(executable)}}
    print("\n".join(sorted(listing(trees[name]))))
