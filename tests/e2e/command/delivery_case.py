"""What tests of `kavi run --deliver` start from: a message, and a policy that files it."""
from gateway_case import GatewayTest

MESSAGE = b"From: a@x.example\r\nTo: b@x.example\r\nSubject: hello\r\n\r\nbody\r\n"
READDRESS = "{id: 7, name: r, when: always, actions: [{readdress: c@y.example}]}"
AREAS = "quarantine_areas: [{name: virus}]\narchive_areas: [{name: journal}]\n"


class DeliveryCase(GatewayTest):

    def setUp(self):
        super().setUp()
        self.message = self.put("m.eml", MESSAGE)

    def areas(self, *actions):
        return self.put("policy.yaml", AREAS + "rules:\n- {id: 15, name: q, when: always, "
                        "actions: [%s]}\n" % ", ".join(actions))
