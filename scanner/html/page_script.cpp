#include "scanner/html/page_assets.h"

namespace tavrik::scanner::html {

const char kPageScript[] = R"('use strict';
(function () {
  var main = document.querySelector('main');
  var rows = Array.prototype.slice.call(main.querySelectorAll('details.f'));
  var box = document.getElementById('q');
  var shown = document.getElementById('shown');
  var texts = rows.map(function (row) { return row.querySelector('summary').textContent.toLowerCase() + ' ' + row.dataset.x; });
  var kind = '';
  var order = { key: '', down: false };

  // The markup of a row's details is kept as text until the row is opened.
  function unfold(row) {
    var kept = row.querySelector('script');
    if (!kept) return;
    var body = document.createElement('div');
    body.className = 'b';
    body.innerHTML = kept.textContent;
    kept.replaceWith(body);
  }

  function filter() {
    var words = box.value.toLowerCase().split(/\s+/).filter(Boolean);
    var count = 0;
    rows.forEach(function (row, index) {
      var fits = (kind === '' || (' ' + row.dataset.k + ' ').indexOf(' ' + kind + ' ') >= 0) &&
        words.every(function (word) { return texts[index].indexOf(word) >= 0; });
      row.hidden = !fits;
      count += fits ? 1 : 0;
    });
    shown.textContent = count + ' of ' + rows.length + (rows.length === 1 ? ' file' : ' files');
  }

  function sort(key) {
    order = { key: key, down: order.key === key ? !order.down : key !== 'n' };
    var places = rows.map(function (row, index) { return index; });
    var names = key === 'n' && rows.map(function (row) { return row.querySelector('.name').textContent; });
    places.sort(function (one, other) {
      var a = names ? names[one] : Number(rows[one].dataset[key]);
      var b = names ? names[other] : Number(rows[other].dataset[key]);
      var result = a < b ? -1 : a > b ? 1 : 0;
      return (order.down ? -result : result) || one - other;
    });
    rows = places.map(function (place) { return rows[place]; });
    texts = places.map(function (place) { return texts[place]; });
    var fragment = document.createDocumentFragment();
    rows.forEach(function (row) { fragment.appendChild(row); });
    main.appendChild(fragment);
  }

  function readAddress() {
    var opens = false;
    location.hash.slice(1).split('&').forEach(function (part) {
      if (part.indexOf('q=') === 0) box.value = decodeURIComponent(part.slice(2));
      if (part.indexOf('sort=') === 0) sort(part.slice(5));
      opens = opens || part === 'open';
    });
    filter();
    var first = rows.filter(function (row) { return !row.hidden; })[0];
    if (opens && first) {
      unfold(first);
      first.open = true;
    }
  }

  main.addEventListener('toggle', function (event) {
    if (event.target.open && event.target.classList.contains('f')) unfold(event.target);
  }, true);
  var waiting = 0;
  box.addEventListener('input', function () {
    clearTimeout(waiting);
    waiting = setTimeout(filter, 80);
  });
  document.querySelectorAll('[data-kind]').forEach(function (button) {
    var counted = rows.filter(function (row) {
      return button.dataset.kind === '' || (' ' + row.dataset.k + ' ').indexOf(' ' + button.dataset.kind + ' ') >= 0;
    }).length;
    button.textContent += ' ' + counted;
    button.disabled = counted === 0;
    button.addEventListener('click', function () {
      kind = button.dataset.kind;
      document.querySelectorAll('[data-kind]').forEach(function (other) {
        other.setAttribute('aria-pressed', String(other === button));
      });
      filter();
    });
  });
  document.querySelectorAll('[data-sort]').forEach(function (button) {
    button.addEventListener('click', function () { sort(button.dataset.sort); });
  });
  window.addEventListener('hashchange', readAddress);
  readAddress();
})();
)";

} // namespace tavrik::scanner::html
