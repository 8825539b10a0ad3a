"""What registration must leave in the registry, written out from the
product's registration contract (independently of the executable's REGISTRY
resources), for the end-to-end tests of tests/wine/service."""

SERVICE = "Tarnwick Hot Folders"
APPID = "{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}"
CLSID = "{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}"
LIBID = "{524F5CA9-889F-479E-9DCC-E15F61C695AC}"
IID = "{4D84CADB-50A1-44A9-8D74-E31D15EB6A8A}"
EVENT_SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\Eventlog\Application" "\\" + SERVICE

# The AccessPermission security descriptor, byte for byte.
ACCESS_PERMISSION = bytes.fromhex(
    "01 00 04 80 58 00 00 00 68 00 00 00 00 00 00 00 14 00 00 00 02 00 44 00 03 00 00 00 00 00 14 00 "
    "03 00 00 00 01 01 00 00 00 00 00 01 00 00 00 00 00 00 14 00 07 00 00 00 01 01 00 00 00 00 00 05 "
    "0a 00 00 00 00 00 14 00 03 00 00 00 01 01 00 00 00 00 00 05 12 00 00 00 01 02 00 00 00 00 00 05 "
    "20 00 00 00 20 02 00 00 01 02 00 00 00 00 00 05 20 00 00 00 20 02 00 00")


def sz(text):
    return ("REG_SZ", text)


def tables(executable):
    """The two tables as `Prefix.reg_tree` gives them, by the key each
    listing starts from (relative to the classes root)."""
    return {
        "AppID\\" + APPID: {"": {"": sz("TarnwickHotFolder")}},
        r"AppID\TarnwickHotFolder.EXE": {"": {"AppID": sz(APPID)}},
        "Tarnwick.FolderService.1": {"": {"": sz("FolderService Class")}, "CLSID": {"": sz(CLSID)}},
        "Tarnwick.FolderService": {
            "": {"": sz("FolderService Class")},
            "CLSID": {"": sz(CLSID)},
            "CurVer": {"": sz("Tarnwick.FolderService.1")},
        },
        "CLSID\\" + CLSID: {
            "": {"": sz("FolderService Class"), "AppID": sz(APPID)},
            "ProgID": {"": sz("Tarnwick.FolderService.1")},
            "VersionIndependentProgID": {"": sz("Tarnwick.FolderService")},
            "Programmable": {},
            "LocalServer32": {"": sz(f'"{executable}"')},
            "TypeLib": {"": sz(LIBID)},
        },
    }


def service_tables(executable):
    """The tables after "Service": the AppID key also holds the module's own values."""
    expected = tables(executable)
    expected["AppID\\" + APPID][""].update(
        {"LocalService": sz(SERVICE), "AccessPermission": ("REG_BINARY", ACCESS_PERMISSION.hex().upper())})
    return expected


def event_source(executable):
    return {"": {"EventMessageFile": sz(executable), "TypesSupported": ("REG_DWORD", "0x7"),
                 "CategoryMessageFile": sz(executable), "CategoryCount": ("REG_DWORD", "0x3")}}


def service_configuration(executable):
    """The service as the service control manager reports it after "Service"."""
    return {"type": "16", "start": "2", "error": "1", "path": f'"{executable}"', "dependency": "RPCSS",
            "account": "LocalSystem", "display": SERVICE}
