"""What the campaign does to each message, and who checks it."""
import facts
from header_check import FieldCheck, TagCheck
from removal_check import RemovalCheck
from stamp_check import StampCheck

# Characters that HTML must escape in both; the second fits Japanese charsets and Unicode only.
ASCII_STAMP = ["Checked by the gateway: <safe> & sound.", "Campaign stamp 7Q1."]
OTHER_STAMP = ["検査済み：このメールは <確認> & 保存されました。", "Campaign stamp 8R2."]
ASCII_TAG = "[CAMPAIGN] "
OTHER_TAG = "【社外】"


class Action:
    """One column of the campaign: a policy, its settings, and the check of what comes out."""

    def __init__(self, name, policy, check, settings="", unchanged=lambda root: ""):
        self.name = name
        self.policy = policy
        self.check = check
        self.settings = settings
        self.reason_to_stay = unchanged
        self.removes = isinstance(check, RemovalCheck)


def _rule(action, objects=""):
    return f"{objects}rules:\n- {{id: 1, name: campaign, when: always, actions: [{action}]}}\n"


def _stamp(lines, position, signed="leave"):
    text = "".join(f"      {line}\n" for line in lines)
    return _rule("{stamp: s}", f"stamps:\n  - name: s\n    position: {position}\n"
                               f"    signed_and_tnef: {signed}\n    text: |\n{text}")


def _guarded(root):
    return facts.signature(root) or facts.tnef(root)


def _no_attachment(root):
    return "" if any(map(facts.is_attachment, root.walk())) else "no attachment"


def _stamp_action(name, lines, position, as_attachment=False, signed="leave"):
    settings = "[MessageModule]\nInsertStampAsAttachment = 1\n" if as_attachment else ""
    return Action(name, _stamp(lines, position, signed),
                  StampCheck(lines, position == "end", as_attachment), settings,
                  _guarded if signed == "leave" else lambda root: "")


def _tag_action(name, tag, directly=False):
    settings = "[MessageModule]\nTagDirectly = 1\n" if directly else ""
    return Action(name, _rule(f'{{tag_subject: "{tag}"}}'), TagCheck(tag, directly), settings,
                  facts.signature)


def all_actions():
    return [
        _stamp_action("stamp top", ASCII_STAMP, "top"),
        _stamp_action("stamp end", ASCII_STAMP, "end"),
        _stamp_action("stamp top, Japanese", OTHER_STAMP, "top"),
        _stamp_action("stamp end, Japanese", OTHER_STAMP, "end"),
        _stamp_action("stamp signed ones too", OTHER_STAMP, "end", signed="stamp"),
        _stamp_action("stamp as attachment", OTHER_STAMP, "end", as_attachment=True),
        _tag_action("tag ASCII", ASCII_TAG),
        _tag_action("tag Japanese", OTHER_TAG),
        _tag_action("tag directly", ASCII_TAG, directly=True),
        Action("delete all attachments", _rule("{delete_attachments: all}"), RemovalCheck(),
               unchanged=_no_attachment),
        Action("X-header", _rule('{x_header: "X-Campaign: was here"}'),
               FieldCheck("X-Campaign", "was here")),
    ]
