// How the page's sources are looked at: eslint.config.js in the folder of the tools.
import js from "@eslint/js";
import globals from "globals";

export default [
  js.configs.recommended,
  {
    languageOptions: { globals: globals.browser },
    rules: {
      curly: ["error", "multi-line"],
      eqeqeq: "error",
      "no-shadow": "error",
      "no-var": "error",
      "prefer-const": "error",
      "max-lines": ["error", 300],
      "no-restricted-properties": [
        "error",
        { property: "innerHTML", message: "Names may hold anything: text only." },
        { property: "outerHTML", message: "Names may hold anything: text only." },
        { property: "insertAdjacentHTML", message: "Names may hold anything: text only." },
      ],
    },
  },
];
