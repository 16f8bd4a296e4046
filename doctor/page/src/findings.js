// The verdict and the other findings, with what proves them and what to do.

import {make} from "./dom.js";
import * as words from "./words.js";

export const severitySign = name => make("span", {class: `sign ${name}`, "aria-hidden": "true"}, words.severity(name).sign);

function proofLine(machine, proof, chosen) {
  return make("li", {}, make("button", {type: "button", class: "proof", onclick: () => chosen(proof)},
    make("span", {class: "place"}, machine.place([proof.file, proof.line])),
    make("span", {class: "time"}, words.moment(proof.t)),
    make("span", {class: `level ${proof.level}`}, proof.level),
    make("span", {class: "text"}, proof.operation, " \u2014 ", proof.text)));
}

// `chosen(proof)` is called for the line that the reader wants to see.
export function findingsOf(machine, chosen) {
  return machine.data.findings.map((finding, index) => {
    const verdict = index === 0;
    const {word} = words.severity(finding.severity);
    const heading = make(verdict ? "h2" : "h3", {},
      severitySign(finding.severity),
      make("span", {}, make("span", {class: "kicker"},
        `${verdict ? "Verdict" : `Finding ${finding.number}`} \u00b7 ${words.subjectWord(finding.subject)} \u00b7 ${word}`),
      make("span", {class: "sentence"}, finding.sentence)));
    const proofs = finding.proof.map(proof => proofLine(machine, proof, chosen));
    const body = [
      finding.remedy ? make("p", {class: "remedy"}, make("strong", {}, "What to do: "), finding.remedy) : null,
      proofs.length ? make("details", {open: verdict || machine.data.findings.length <= 3},
        make("summary", {}, `Proof: ${words.plural(proofs.length, "line", "lines")}`),
        make("ul", {class: "proofs"}, ...proofs)) : null,
      make("p", {class: "foot"},
        finding.t === null ? null : `${words.moment(finding.t)} \u00b7 `, make("code", {}, finding.cause)),
    ];
    return make("article", {class: `card finding ${finding.severity} ${verdict ? "verdict" : ""}`}, heading, ...body);
  });
}
