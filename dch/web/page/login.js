// login.js: asks for the token and keeps it as a cookie of this page.

const COOKIE = "zord410_token";
const token = document.getElementById("token");
const wrong = document.getElementById("wrong");

const setCookie = (value, rest = "") => {
  document.cookie = `${COOKIE}=${encodeURIComponent(value)}; SameSite=Strict; path=/${rest}`;
};

// With a token at hand and this page all the same: the server did not take it.
if (document.cookie.split("; ").some((each) => each.startsWith(`${COOKIE}=`))) {
  setCookie("", "; max-age=0");
  wrong.textContent = "That token was not accepted. Is it the one in the file, without a blank or a line end?";
  token.setAttribute("aria-invalid", "true");
}

document.getElementById("login").addEventListener("submit", (event) => {
  event.preventDefault();
  setCookie(token.value.trim());
  location.reload();
});
